#include "qstd/from_chars.h"

#include <clocale>  // newlocale
#include <cstdlib>  // strtod_l
#include <string>

namespace qstd {

std::from_chars_result FromChars(const char* begin, const char* end, double& value) {
    const std::from_chars_result result = std::from_chars(begin, end, value);
#ifdef __i386__
    if (result.ec == std::errc()) {
        // The C library's conversion is done in whole numbers.
        static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
        value = ::strtod_l(std::string(begin, result.ptr).c_str(), nullptr, locale);
    }
#endif
    return result;
}

}  // namespace qstd
