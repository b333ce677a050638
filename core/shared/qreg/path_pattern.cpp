#include "qreg/path_pattern.h"

#include "qreg/path_names.h"

namespace qreg {

namespace {

/// Whether @p pattern, a name in which "*" stands for any characters, is @p name. After a mismatch only the last "*"
/// takes in one character more: what the ones before it took in first is as good as anything they could take in.
bool MatchesName(std::string_view pattern, std::string_view name) noexcept {
    std::size_t at = 0;
    std::size_t in = 0;
    std::size_t star = std::string_view::npos;
    std::size_t starIn = 0;
    while (in < name.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            starIn = in;
        } else if (at < pattern.size() && pattern[at] == name[in]) {
            ++at;
            ++in;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            in = ++starIn;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

constexpr std::string_view c_anyNames = "**";

/// Appends @p name with one "*" for each run of them.
void AppendSimplified(std::string& pattern, std::string_view name) {
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (at == 0 || name[at] != '*' || name[at - 1] != '*') {
            pattern += name[at];
        }
    }
}

}  // namespace

std::string Simplified(std::string_view pattern) {
    std::string simplified;
    PathNames names(pattern);
    std::string_view last;
    for (std::string_view name; names.Next(name); last = name) {
        if (name == c_anyNames && last == c_anyNames) {
            continue;
        }
        if (!simplified.empty()) {
            simplified += '/';
        }
        if (name == c_anyNames) {
            simplified += name;
        } else {
            AppendSimplified(simplified, name);
        }
    }
    return simplified;
}

bool Matches(std::string_view pattern, std::string_view path) noexcept {
    PathNames patterns(pattern);
    PathNames names(path);
    // Where to go on after a mismatch: behind the last "**", which then takes in one name more.
    bool hasRestart = false;
    PathNames restartPatterns(pattern);
    PathNames restartNames(path);
    std::string_view wanted;
    std::string_view name;
    while (patterns.Next(wanted)) {
        if (wanted == c_anyNames) {
            hasRestart = true;
            restartPatterns = patterns;
            restartNames = names;
            continue;
        }
        if (!names.Next(name)) {
            return false;
        }
        if (!MatchesName(wanted, name)) {
            if (!hasRestart) {
                return false;
            }
            restartNames.Next(name);
            patterns = restartPatterns;
            names = restartNames;
        }
    }
    return true;
}

}  // namespace qreg
