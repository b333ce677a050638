#include "qreg/path_pattern.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/support/cpu_time.h"

namespace {

struct Case {
    std::string pattern;
    std::string path;
    bool matches;
};

class PathPattern : public testing::TestWithParam<Case> {};

TEST_P(PathPattern, TakesInWhatItShould) {
    EXPECT_EQ(qreg::Matches(GetParam().pattern, GetParam().path), GetParam().matches)
        << "\"" << GetParam().pattern << "\" and \"" << GetParam().path << "\"";
}

INSTANTIATE_TEST_SUITE_P(Empty, PathPattern,
                         testing::Values(Case{"", "", true}, Case{"", "boards/icb", true}, Case{"/", "fans", true},
                                         Case{"fans", "", false}, Case{"*", "", false}, Case{"**", "", true},
                                         Case{"**/**", "", true}, Case{"**/fans", "", false}));

INSTANTIATE_TEST_SUITE_P(Names, PathPattern,
                         testing::Values(Case{"fans", "fans", true}, Case{"fans", "fans/left", true},
                                         Case{"fans", "fan", false}, Case{"fan", "fans", false},
                                         Case{"fans/left", "fans", false}, Case{"Fans", "fans", false},
                                         Case{"/fans//left/", "fans/left", true},
                                         Case{"fans/left", "/fans//left/", true}));

INSTANTIATE_TEST_SUITE_P(
    Star, PathPattern,
    testing::Values(Case{"*", "fans", true}, Case{"*", "boards/icb", true}, Case{"*/icb", "boards/icb", true},
                    Case{"*/icb", "icb", false}, Case{"*/icb", "a/b/icb", false}, Case{"ID_*", "ID_12", true},
                    Case{"ID_*", "ID_", true}, Case{"ID_*", "ID", false}, Case{"*_12", "ID_12", true},
                    Case{"*_12", "ID_12_3", false}, Case{"*_12", "a_12_12", true}, Case{"I*1*2", "ID_112", true},
                    Case{"I*1*2", "ID_121", false}, Case{"a*c", "a/c", false}, Case{"a**c", "abc", true},
                    Case{"***", "abc", true}, Case{"***", "", false}, Case{"*a*", "bab", true},
                    Case{"*a*", "bbb", false}, Case{"boards/*/sensors/*/value", "boards/icb/sensors/ID_12/value", true},
                    Case{"boards/*/sensors/*/value", "boards/icb/sensors/ID_12/hnc", false}));

INSTANTIATE_TEST_SUITE_P(ManyNames, PathPattern,
                         testing::Values(Case{"**", "a/b/c", true}, Case{"**/c", "a/b/c", true},
                                         Case{"**/c", "c", true}, Case{"**/c", "a/c/d", true},
                                         Case{"**/c", "a/b", false}, Case{"a/**", "a", true},
                                         Case{"a/**", "a/b/c", true}, Case{"a/**", "b/a", false},
                                         Case{"a/**/c", "a/c", true}, Case{"a/**/c", "a/b/b/c", true},
                                         Case{"a/**/c", "a/b", false}, Case{"a/**/b/c", "a/b/b/c", true},
                                         Case{"a/**/b/c", "a/b/d/c", false}, Case{"**/a/**/b", "x/a/a/x/b", true},
                                         Case{"**/a/**/b", "x/b/x/a", false}, Case{"**/b*/c", "b1/b2/c", true},
                                         Case{"**/value", "boards/icb/sensors/ID_12/value", true}));

std::string Repeat(const std::string& text, int count) {
    std::string repeated;
    for (int i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

/// Patterns on which a search that tries every split takes longer than the world will last.
TEST(PathPatternTime, HostilePatterns_TakeNoTime) {
    const std::string manyStars = Repeat("*a", 200) + "*b";
    const std::string manyAs = Repeat("a", 400);
    const std::string manyDeep = Repeat("**/a/", 80) + "b";
    const std::string deepAs = Repeat("a/", 200);
    const std::string both = Repeat("**/*a*a*/", 40) + "b";
    const std::string deepBoth = Repeat("aaaaaaaa/", 50);
    const auto begin = test::ThreadCpuTime();
    EXPECT_FALSE(qreg::Matches(manyStars, manyAs));
    EXPECT_TRUE(qreg::Matches(manyStars, manyAs + "b"));
    EXPECT_FALSE(qreg::Matches(manyDeep, deepAs));
    EXPECT_TRUE(qreg::Matches(manyDeep, deepAs + "b"));
    EXPECT_FALSE(qreg::Matches(both, deepBoth));
    EXPECT_TRUE(qreg::Matches(both, deepBoth + "b"));
    EXPECT_LT(test::ThreadCpuTime() - begin, std::chrono::seconds(1));
}

TEST(PathPatternTime, Simplified_HasNothingLeftThatOnlyCostsTime) {
    EXPECT_EQ(qreg::Simplified(Repeat("**/", 80) + Repeat("*", 200) + "q"), "**/*q");
    EXPECT_EQ(qreg::Simplified("/boards//ID_**/***/**/**/"), "boards/ID_*/*/**");
    EXPECT_EQ(qreg::Simplified("boards/*/sensors"), "boards/*/sensors");
    EXPECT_EQ(qreg::Simplified("//"), "");
}

/// The rule written down as it is told, without regard to time.
bool Told(std::string_view pattern, std::string_view path);

bool ToldName(std::string_view pattern, std::string_view name) {
    if (pattern.empty()) {
        return name.empty();
    }
    if (pattern[0] == '*') {
        return ToldName(pattern.substr(1), name) || (!name.empty() && ToldName(pattern, name.substr(1)));
    }
    return !name.empty() && pattern[0] == name[0] && ToldName(pattern.substr(1), name.substr(1));
}

std::pair<std::string_view, std::string_view> Split(std::string_view path) {
    const auto slash = path.find('/');
    return {path.substr(0, slash), slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1)};
}

bool Told(std::string_view pattern, std::string_view path) {
    if (pattern.empty()) {
        return true;
    }
    const auto [wanted, wantedRest] = Split(pattern);
    if (wanted.empty()) {
        return Told(wantedRest, path);
    }
    if (wanted == "**" && Told(wantedRest, path)) {
        return true;
    }
    const auto [name, rest] = Split(path);
    if (name.empty()) {
        return !rest.empty() && Told(pattern, rest);
    }
    return wanted == "**" ? Told(pattern, rest) : ToldName(wanted, name) && Told(wantedRest, rest);
}

TEST(PathPatternRule, HoldsForEveryShortPatternAndPath) {
    const auto all = [](const std::string& letters, std::size_t length) {
        std::vector<std::string> texts{""};
        for (std::size_t first = 0; !texts.empty() && texts.back().size() < length;) {
            const std::size_t end = texts.size();
            for (; first < end; ++first) {
                for (const char letter : letters) {
                    texts.push_back(texts[first] + letter);
                }
            }
        }
        return texts;
    };
    const auto paths = all("ab/", 5);
    for (const std::string& pattern : all("a*/", 6)) {
        const std::string simplified = qreg::Simplified(pattern);
        for (const std::string& path : paths) {
            ASSERT_EQ(qreg::Matches(pattern, path), Told(pattern, path)) << pattern << " and " << path;
            ASSERT_EQ(qreg::Matches(simplified, path), Told(pattern, path)) << simplified << " and " << path;
        }
    }
}

}  // namespace
