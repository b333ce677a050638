#include "qreg/peer.h"

#include "qstd/strings.h"

namespace qreg {

namespace {

constexpr std::size_t c_longestAddress = 80;
constexpr std::size_t c_longestSubject = 200;

}  // namespace

std::string Peer::ToText() const {
    const std::string where = ForLog(address, c_longestAddress);
    return subject.empty() ? where : where + " (" + ForLog(subject, c_longestSubject) + ")";
}

std::string ForLog(const std::string& text, std::size_t most) {
    static constexpr std::string_view c_cut = "...";
    if (text.size() <= most) {
        return qstd::OneLine(text);
    }
    constexpr unsigned char c_continuation = 0x80;
    constexpr unsigned char c_continuationMask = 0xC0;
    std::size_t end = most - c_cut.size();
    while (end > 0 && (static_cast<unsigned char>(text[end]) & c_continuationMask) == c_continuation) {
        --end;  // no half of a letter
    }
    return qstd::OneLine(text.substr(0, end)) + std::string(c_cut);
}

}  // namespace qreg
