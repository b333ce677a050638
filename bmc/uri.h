#pragma once

#include <string>

namespace bmc {

/// Identifies a board: a subsystem and an id. A value type, ordered by its text.
class Uri {
public:
    Uri() = default;

    /// Text form "SUBSYSTEM/ID".
    Uri(const std::string& subSystem, const std::string& id) : Uri(subSystem + "/" + id, subSystem, id) {}

    /// With a text form of the backend's own. @param text unique among the boards of a chassis
    Uri(std::string text, std::string subSystem, std::string id);

    /// From the text form "SUBSYSTEM/ID". @throws qstd::Exception naming the text when either half is empty or holds
    /// anything but letters, digits, "_", "-" and ".", or begins with "." (both halves become part of file names).
    static Uri Parse(const std::string& text);

    /// The board's unique text form, which is also its ordering key.
    const std::string& ToString() const noexcept { return m_text; }
    std::string GetSubSystemStr() const { return m_subSystem; }
    const std::string& GetId() const noexcept { return m_id; }

private:
    std::string m_text;
    std::string m_subSystem;
    std::string m_id;
};

/// Byte-wise order of the text forms; a proper prefix comes first.
inline bool operator<(const Uri& left, const Uri& right) noexcept {
    return left.ToString() < right.ToString();
}
inline bool operator==(const Uri& left, const Uri& right) noexcept {
    return left.ToString() == right.ToString();
}

/// How messages and file names call a board: subsystem, "_", id.
std::string BoardLabel(const Uri& uri);

/// The chassis controller board (ICB) of the local chassis: "icb/0".
extern const Uri c_localIcbUri;

}  // namespace bmc
