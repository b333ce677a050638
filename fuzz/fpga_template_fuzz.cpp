#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bmc/ipmi/fpga_template.h"
#include "qstd/exception.h"

namespace {

/// What stands up to the next newline, which is taken away with it.
std::string TakeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

}  // namespace

// Three lines as the templates of a board's registers, the rest as a reply: either an exception, or requests that are
// as long as a message may be.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string read = TakeLine(text);
    const std::string write = TakeLine(text);
    const std::string reply = TakeLine(text);
    try {
        const bmc::ipmi::FpgaTemplate fpga(read, write, reply);
        constexpr std::uint16_t c_word = 0xa55a;
        for (const bmc::ipmi::Request& request : {fpga.MakeRead(c_word), fpga.MakeWrite(c_word, c_word)}) {
            if (request.netFn % 2 != 0 || request.data.size() + 2 > bmc::ipmi::FpgaTemplate::c_maxSize) {
                std::abort();
            }
        }
        fpga.ReadReply(std::vector<std::uint8_t>(text.begin(), text.end()));
    } catch (const qstd::Exception&) {
        return 0;
    }
    return 0;
}
