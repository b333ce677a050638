// Numbers, times and conversions come out the same wherever the system runs: as written down on 64 bits.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "number_table.h"
#include "tests/support/file.h"

namespace {

/// By section: a digest that differs says little, and the lines below it are not each worth a failure.
std::vector<std::string> SectionsOf(const std::string& table) {
    std::vector<std::string> sections;
    std::istringstream text(table);
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("== ")) {
            sections.emplace_back();
        }
        if (!sections.empty()) {
            sections.back() += line + "\n";
        }
    }
    return sections;
}

TEST(Numbers, ComeOutAsWrittenDown) {
    const auto expected = SectionsOf(test::ReadFile(ZELKOR_TEST_DATA "/numbers.txt"));
    const auto found = SectionsOf(test::NumberTable());
    ASSERT_EQ(found.size(), expected.size());
    ASSERT_FALSE(found.empty());
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i], expected[i]) << "compare what `number_table 1` writes on both";
    }
}

}  // namespace
