#pragma once

#include <iosfwd>
#include <string>

namespace qstd {

/// The version of the running program. Set once before `main`, read from any thread afterwards.
class VerInfo {
public:
    /// Sets the program's version; to be called from a static initialiser.
    /// @param description free text about the build, may be empty
    /// @param compiler the compiler's banner
    /// @param builtAt date and time of the build, "YYYY/MM/DD hh:mm:ss"
    /// @param machine description of the build machine
    /// @param user who built it
    /// @return true, so that a constant can be initialised with the call.
    static bool Init(int major, int minor, int micro, int build, const char* description, const char* compiler,
                     const char* builtAt, const char* machine, const char* user);

    /// The program's version; all zero and empty before Init.
    static const VerInfo& Get() noexcept;

    /// "2.8.167.20437": major, minor, micro and build.
    std::string ToString() const;

    int m_major = 0;
    int m_minor = 0;
    int m_micro = 0;
    int m_build = 0;
    std::string m_description;
    std::string m_compiler;
    std::string m_builtAt;
    std::string m_machine;
    std::string m_user;
};

/// Writes VerInfo::ToString().
std::ostream& operator<<(std::ostream& out, const VerInfo& version);

}  // namespace qstd
