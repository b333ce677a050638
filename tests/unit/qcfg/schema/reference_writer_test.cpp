#include "qcfg/reference_writer.h"

#include <gmock/gmock.h>

#include "daemon_rules.h"
#include "qcfg/value_types.h"
#include "tests/support/file.h"

namespace {

TEST(ReferenceWriter, SmallTable_WholePage) {
    qcfg::ElementRule rule{.name = "root", .doc = "A root."};
    rule.variantAttribute = "kind";
    rule.variantDoc = "Which.";
    rule.variants = {{.name = "a", .doc = "the first kind."}};
    rule.variants[0].attributes = {{.name = "id", .type = qcfg::Whole(0, 9), .isRequired = true, .doc = "A | number."}};
    rule.children = {{.name = "child",
                      .doc = "A | child.",
                      .text = qcfg::NameOrNumber("t", "thing", {{"x", 1}}),
                      .defaultValue = "x"}};
    EXPECT_EQ(qcfg::WriteReference(rule, "# Title\n"), R"(# Title

## root

A root.

| attribute | value | default | meaning |
|---|---|---|---|
| `kind` | one of: a | `a` | Which. |

| element | how often | meaning |
|---|---|---|
| `<child>` | at most once | A \| child. |

With `kind="a"`: the first kind.

| attribute | value | default | meaning |
|---|---|---|---|
| `id` | whole number 0..9 | required | A \| number. |

## root / child

A | child.

Text: name or number of a thing; default `x`.

## Values: t

| name | number |
|---|---|
| `x` | 1 |
)");
}

TEST(ReferencePage, CommittedPage_IsWhatTheRulesSay) {
    EXPECT_EQ(test::ReadFile(ZELKOR_SOURCE_DIR "/docs/reference/configuration.md"),
              qapp::ConfigurationReference(DaemonRules()))
        << "The page's first lines say how it is written anew.";
}

}  // namespace
