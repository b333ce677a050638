#include "qcfg/schema.h"

#include <gtest/gtest.h>

#include <functional>

#include "daemon_rules.h"
#include "qcfg/value_types.h"
#include "qstd/exception.h"

namespace {

using qcfg::ElementRule;

ElementRule GoodRule() {
    return {.name = "root",
            .doc = "A root.",
            .attributes = {{.name = "a", .type = qcfg::Whole(1, 9), .defaultValue = "3", .doc = "A number."}},
            .children = {{.name = "child", .doc = "A child.", .text = qcfg::Boolean(), .defaultValue = "on"}}};
}

void SpoilChild(ElementRule& rule, const std::function<void(ElementRule&)>& spoil) {
    ElementRule child = *rule.children.begin();
    spoil(child);
    rule.children = {child};
}

std::string Refusal(const std::function<void(ElementRule&)>& spoil) {
    ElementRule rule = GoodRule();
    spoil(rule);
    try {
        qcfg::ProveRules(rule);
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return {};
}

TEST(ProveRules, GoodTable_Passes) {
    EXPECT_EQ(Refusal([](ElementRule&) {}), "");
}

TEST(ProveRules, EachContradiction_IsNamed) {
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.doc.clear(); }),
              "Configuration rule /root: name or explanation is missing");
    EXPECT_EQ(Refusal([](ElementRule& rule) { SpoilChild(rule, [](ElementRule& child) { child.name.clear(); }); }),
              "Configuration rule /root/: name or explanation is missing");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.text = qcfg::Boolean(); }),
              "Configuration rule /root: has both a text and children");
    EXPECT_EQ(Refusal([](ElementRule& rule) {
                  rule.children = {*rule.children.begin(), *rule.children.begin()};
              }),
              "Configuration rule /root: has two rules for its child child");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.attributes.push_back(rule.attributes[0]); }),
              "Configuration rule /root/@a: attribute without a name of its own");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.attributes[0].type = nullptr; }),
              "Configuration rule /root/@a: type or explanation is missing");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.attributes[0].isRequired = true; }),
              "Configuration rule /root/@a: required, yet it has a default");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.attributes[0].defaultValue = "10"; }),
              "Configuration rule /root/@a: default \"10\" is above the limit of 9");
    EXPECT_EQ(
        Refusal([](ElementRule& rule) { SpoilChild(rule, [](ElementRule& child) { child.defaultValue = "soon"; }); }),
        "Configuration rule /root/child: default \"soon\" is not a boolean (true, false, 1, 0, yes, no, on, off)");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.variants = {{.name = "v", .doc = "A variant."}}; }),
              "Configuration rule /root: variants and the attribute that chooses one go together");
    EXPECT_EQ(Refusal([](ElementRule& rule) { rule.variantAttribute = "kind"; }),
              "Configuration rule /root: variants and the attribute that chooses one go together");
}

TEST(ProveRules, VariantsThatShareAName_Refused) {
    EXPECT_EQ(Refusal([](ElementRule& rule) {
                  rule.variantAttribute = "kind";
                  rule.variantDoc = "Which.";
                  rule.variants = {{.name = "v", .attributes = rule.attributes}};
              }),
              "Configuration rule /root/@a: attribute without a name of its own");
}

TEST(ProveRules, TheDaemonsTable_Passes) {
    EXPECT_NO_THROW(qcfg::ProveRules(DaemonRules()));
}

}  // namespace
