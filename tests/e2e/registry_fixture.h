#pragma once

#include <string>
#include <vector>

#include "traced_workers_fixture.h"

namespace test {

/// The lines of a text without their newlines.
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

/// The registry of the running daemon, seen through the tool.
class RegistryTest : public WorkersTest {
protected:
    /// The six reference registers of the fan controller.
    std::vector<std::string> FanRegisters() const {
        std::vector<std::string> values;
        for (const char* address : c_registers) {
            values.push_back(Lines(Do({"fpga", "read", address})).at(0));
        }
        return values;
    }

    /// @p words must fail with @p status and @p error on standard error.
    void ExpectFailure(const std::vector<std::string>& words, int status, const std::string& error) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, status) << result.output << result.error;
        EXPECT_THAT(result.error, testing::HasSubstr(error));
    }
};

}  // namespace test
