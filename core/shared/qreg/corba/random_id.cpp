#include "qreg/corba/random_id.h"

#include <array>
#include <cstdint>

#include <sys/random.h>

#include "qstd/exception.h"

namespace qreg::corba {

std::string RandomId() {
    static constexpr const char* c_digits = "0123456789abcdef";
    std::array<std::uint8_t, 16> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw qstd::Exception("The system gives no random numbers", true);
    }
    std::string id;
    id.reserve(2 * bytes.size());
    for (const unsigned byte : bytes) {
        id += c_digits[byte >> 4U];
        id += c_digits[byte & 0xFU];
    }
    return id;
}

}  // namespace qreg::corba
