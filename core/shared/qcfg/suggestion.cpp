#include "qcfg/suggestion.h"

#include <algorithm>
#include <cstddef>

namespace qcfg {

namespace {

/// Words longer than any known name are not worth the time.
constexpr std::size_t c_longestWord = 64;

char ToLowerAscii(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Number of letters inserted, left out, changed or exchanged with their neighbour. Case does not count.
std::size_t EditDistance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> beforePrevious;
    std::vector<std::size_t> previous(right.size() + 1);
    std::vector<std::size_t> current(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column) {
        previous[column] = column;
    }
    const auto isSame = [&](std::size_t row, std::size_t column) {
        return ToLowerAscii(left[row - 1]) == ToLowerAscii(right[column - 1]);
    };
    for (std::size_t row = 1; row <= left.size(); ++row) {
        current[0] = row;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const std::size_t changed = previous[column - 1] + (isSame(row, column) ? 0 : 1);
            current[column] = std::min({changed, previous[column] + 1, current[column - 1] + 1});
            if (row > 1 && column > 1 && isSame(row, column - 1) && isSame(row - 1, column)) {
                current[column] = std::min(current[column], beforePrevious[column - 2] + 1);
            }
        }
        beforePrevious = previous;
        std::swap(previous, current);
    }
    return previous[right.size()];
}

}  // namespace

std::string FindSimilar(const std::string& word, const std::vector<std::string>& known) {
    if (word.size() > c_longestWord) {
        return {};
    }
    std::string nearest;
    std::size_t leastDistance = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string& name : known) {
        const std::size_t distance = EditDistance(word, name);
        // A name of which nothing is left is no suggestion.
        if (distance < leastDistance && distance < name.size()) {
            leastDistance = distance;
            nearest = name;
        }
    }
    return nearest;
}

}  // namespace qcfg
