#include "qcfg/finding.h"

#include <gtest/gtest.h>

#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

/// What is printed of an exception's text that was caught in line 7 of c.xml.
std::string Print(const std::string& message) {
    return qcfg::ToText(qcfg::ErrorFrom(message, "c.xml", 7), "c.xml");
}

TEST(ErrorFrom, TextWithALineOfTheFile_IsAnErrorThere) {
    EXPECT_EQ(Print("c.xml:3: wrong: very"), "c.xml:3: error: wrong: very");
}

TEST(ErrorFrom, TextWithoutAPlace_IsAnErrorWhereItWasCaught) {
    EXPECT_EQ(Print("no board access"), "c.xml:7: error: no board access");
    EXPECT_EQ(Print("c.xml: cannot read"), "c.xml:7: error: cannot read");
    EXPECT_EQ(Print("10.0.0.1:623: refused"), "c.xml:7: error: 10.0.0.1:623: refused");
    EXPECT_EQ(Print("c.xml:0: wrong"), "c.xml:7: error: c.xml:0: wrong");
    EXPECT_EQ(Print("c.xml:99999999999: wrong"), "c.xml:7: error: c.xml:99999999999: wrong");
    EXPECT_EQ(Print("c.xml:3"), "c.xml:7: error: c.xml:3");
    EXPECT_EQ(Print(""), "c.xml:7: error: ");
}

TEST(ErrorFrom, LineOfAnotherFile_IsAnErrorThereInThePlaceOfTheLineThatNamesIt) {
    const test::TempFolder folder;
    const std::string other = folder.Path("a:1: b.xml");
    test::WriteFile(other, "");
    test::WriteFile(folder.Path("b.xml"), "");
    EXPECT_EQ(Print(folder.Path("b.xml") + ":2: wrong"), folder.Path("b.xml") + ":2: error: wrong");
    EXPECT_EQ(qcfg::ErrorFrom(folder.Path("b.xml") + ":2: wrong", "c.xml", 7).line, 7);
    EXPECT_EQ(Print(other + ":2: wrong"), "c.xml:7: error: " + other + ":2: wrong");  // said whole, if not apart
}

TEST(ErrorFrom, FileAsAWhole_HasNoLine) {
    EXPECT_EQ(qcfg::ToText(qcfg::ErrorFrom("c.xml: cannot read", "c.xml", 0), "c.xml"), "c.xml: error: cannot read");
}

TEST(SortByLine, FindingsOfOneLine_KeepTheirOrder) {
    qcfg::Findings findings{{qcfg::Severity_e::error, 3, "a"},
                            {qcfg::Severity_e::warning, 1, "b"},
                            {qcfg::Severity_e::error, 1, "c"},
                            {qcfg::Severity_e::warning, 3, "d"}};
    qcfg::SortByLine(findings);
    std::string order;
    for (const qcfg::Finding& finding : findings) {
        order += finding.text;
    }
    EXPECT_EQ(order, "bcad");
}

}  // namespace
