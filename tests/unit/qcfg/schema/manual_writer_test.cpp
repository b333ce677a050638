#include "qcfg/manual_writer.h"

#include <gmock/gmock.h>

#include "daemon_rules.h"
#include "qapp/configuration_manual.h"
#include "qcfg/checker.h"
#include "qcfg/document.h"
#include "qcfg/value_types.h"
#include "tests/support/file.h"

namespace {

TEST(ManualWriter, SmallTable_WholePage) {
    qcfg::ElementRule rule{.name = "root", .doc = "A root. With two sentences."};
    rule.variantAttribute = "kind";
    rule.variantDoc = "Which.";
    rule.variants = {{.name = "a", .doc = "the first kind."}};
    rule.variants[0].attributes = {
        {.name = "on-off", .type = qcfg::Whole(0, 9), .isRequired = true, .doc = ".5 \"'\\` | ^~."}};
    rule.children = {{.name = "child",
                      .doc = "A child.",
                      .text = qcfg::NameOrNumber("t", "thing", {{"x", 1}, {"y", 2}}),
                      .defaultValue = "x"}};
    EXPECT_EQ(qcfg::WriteManual(rule, ".TH\n", ".SH FILES\n"), R"(.TH
.SH ELEMENTS
.SS root
A root.
With two sentences.
.TP
\fBkind\fR
Value: one of: a; default a.
Which.
.TP
\fB<child>\fR (at most once)
A child.
.PP
With \fBkind=\(dqa\(dq\fR:
the first kind.
.TP
\fBon\-off\fR
Value: whole number 0..9; required.
\&.5 \(dq\(aq\e\(ga \(ba \(ha\(ti.
.SS root / child
A child.
.PP
Text: name or number of a thing; default x.
.SH VALUES
Where a name is wanted, its number may be written in its place.
.SS t
x 1,
y 2.
.SH FILES
)");
}

TEST(ManualPage, CommittedPage_IsWhatTheRulesSay) {
    EXPECT_EQ(test::ReadFile(ZELKOR_SOURCE_DIR "/packaging/man/zelkor-platformd.xml.5"),
              qapp::ConfigurationManual(DaemonRules()))
        << "The page's first lines say how it is written anew.";
}

/// The page's example as a person copies it from the rendered page.
TEST(ManualPage, WholeExample_HasNoFinding) {
    const std::string page = qapp::ConfigurationManual(DaemonRules());
    const std::size_t begin = page.find("<?xml");
    const std::size_t end = page.find(".EE\n", begin);
    ASSERT_NE(end, std::string::npos);
    std::string example = page.substr(begin, end - begin);
    for (std::size_t place = 0; (place = example.find("\\-", place)) != std::string::npos;) {
        example.erase(place, 1);
    }
    EXPECT_THAT(qcfg::CheckConfiguration(*qcfg::ReadXmlText(example, "example"), DaemonRules()), testing::IsEmpty());
}

}  // namespace
