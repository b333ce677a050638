// Reads anything as a configuration: a tree or an error that says where, never a crash, a hang or a leak.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qcfg/document.h"
#include "qstd/exception.h"

namespace {

/// What must hold for every element of a tree that was read.
// NOLINTNEXTLINE(misc-no-recursion): the parser bounds the depth
void Check(const qcfg::Element& element) {
    if (element.GetName().empty() || element.GetLine() < 1) {
        std::abort();
    }
    for (const auto& child : element.GetChildren()) {
        Check(*child);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Check(*qcfg::ReadXmlText(std::string(reinterpret_cast<const char*>(data), size), "input"));
    } catch (const qstd::Exception& error) {
        // The form of every message: one line, "input:LINE: text".
        const std::string text = error.what();
        if (text.rfind("input:", 0) != 0 || text.find(": ") == std::string::npos ||
            text.find('\n') != std::string::npos) {
            std::abort();
        }
    }
    return 0;
}
