#pragma once

#include <version>
#ifdef __cpp_lib_source_location
#include <source_location>
#else
#include <cstdint>
#endif

namespace qstd {

#ifdef __cpp_lib_source_location
/// A place in the sources: as a defaulted argument, the caller's. Functions are named by their whole signature.
using SourceLocation = std::source_location;
#else
/// The same for a compiler without it (clang 14, which checks and fuzzes this program but does not ship it): functions
/// are named without their signature.
class SourceLocation {
public:
    // NOLINTBEGIN(readability-identifier-naming): named as in the standard library
    static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                            const char* function = __builtin_FUNCTION(),
                                            std::uint_least32_t line = __builtin_LINE()) noexcept {
        SourceLocation here;
        here.m_file = file;
        here.m_function = function;
        here.m_line = line;
        return here;
    }
    constexpr const char* file_name() const noexcept { return m_file; }
    constexpr const char* function_name() const noexcept { return m_function; }
    constexpr std::uint_least32_t line() const noexcept { return m_line; }
    // NOLINTEND(readability-identifier-naming)

private:
    const char* m_file = "";
    const char* m_function = "";
    std::uint_least32_t m_line = 0;
};
#endif

}  // namespace qstd
