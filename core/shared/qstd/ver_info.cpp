#include "qstd/ver_info.h"

#include <fmt/format.h>

#include <ostream>

namespace qstd {

namespace {

VerInfo& Mutable() {
    static auto* const version = new VerInfo;  // never destroyed: read until the very end of the process
    return *version;
}

}  // namespace

bool VerInfo::Init(int major, int minor, int micro, int build, const char* description, const char* compiler,
                   const char* builtAt, const char* machine, const char* user) {
    VerInfo& version = Mutable();
    version.m_major = major;
    version.m_minor = minor;
    version.m_micro = micro;
    version.m_build = build;
    version.m_description = description;
    version.m_compiler = compiler;
    version.m_builtAt = builtAt;
    version.m_machine = machine;
    version.m_user = user;
    return true;
}

const VerInfo& VerInfo::Get() noexcept {
    return Mutable();
}

std::string VerInfo::ToString() const {
    return fmt::format("{}.{}.{}.{}", m_major, m_minor, m_micro, m_build);
}

std::ostream& operator<<(std::ostream& out, const VerInfo& version) {
    return out << version.ToString();
}

}  // namespace qstd
