#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <boost/crc.hpp>

#include "bmc/ipmi/record_cache.h"

// Any bytes whatever as a cache file, once as they are and once with the checksum that makes them whole: what is read
// must be what is written again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string place = "p";
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bmc::ipmi::DecodeCacheFile(bytes, place);
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>((crc.checksum() >> shift) & 0xffU);
    }
    const auto records = bmc::ipmi::DecodeCacheFile(bytes, place);
    if (records && bmc::ipmi::EncodeCacheFile(place, *records) != bytes) {
        std::abort();
    }
    return 0;
}
