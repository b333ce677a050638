#pragma once

#include <string>
#include <vector>

#include "workers_fixture.h"

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
        for (const char* address : {"0x40", "0x48", "0x50", "0x58", "0x60", "0x68"}) {
            values.push_back(Lines(Chassis({"fpga", "read", address}).output).at(0));
        }
        return values;
    }

    std::string Output(const std::vector<std::string>& words) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, 0) << result.error;
        return result.output;
    }

    /// @p words must fail with @p status and @p error on standard error.
    void ExpectFailure(const std::vector<std::string>& words, int status, const std::string& error) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, status) << result.output << result.error;
        EXPECT_THAT(result.error, testing::HasSubstr(error));
    }
};

}  // namespace test
