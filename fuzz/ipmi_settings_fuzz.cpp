#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bmc/ipmi/settings.h"
#include "qcfg/document.h"
#include "qstd/exception.h"

// Any bytes whatever as the section with boards over IPMI: either an exception, or boards each of which has its
// controller.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const auto section = qcfg::ReadXmlText(text, "section");
        const bmc::ipmi::Settings settings = bmc::ipmi::ReadSettings(*section, "/nonexistent/section");
        for (const bmc::ipmi::BoardSettings& board : settings.boards) {
            if (board.controller >= settings.controllers.size() || board.target.address % 2 != 0) {
                std::abort();
            }
        }
        if (settings.boards.empty()) {
            std::abort();
        }
    } catch (const qstd::Exception&) {
        return 0;
    }
    return 0;
}
