#include "qcfg/checker.h"

#include <gmock/gmock.h>

#include "qcfg/value_types.h"
#include "rules_support.h"

namespace {

using test::CheckText;
using test::WithSections;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Checker, LeastConfiguration_NothingToSay) {
    EXPECT_THAT(CheckText(WithSections("")), IsEmpty());
}

TEST(Checker, UnknownSection_NamedWithWhatWasMeant) {
    EXPECT_THAT(CheckText(WithSections("<monitr enabled='1'/>")),
                ElementsAre("f.xml:1: error: unknown element <monitr> in <zelkor>; did you mean <monitor>?"));
}

TEST(Checker, UnknownElementWithNothingNear_NoSuggestion) {
    EXPECT_THAT(CheckText(WithSections("<x>1</x>")), ElementsAre("f.xml:1: error: unknown element <x> in <zelkor>"));
}

TEST(Checker, UnknownElement_ItsContentIsNotLookedInto) {
    EXPECT_THAT(CheckText(WithSections("<other><frequency>x</frequency></other>")),
                ElementsAre("f.xml:1: error: unknown element <other> in <zelkor>"));
}

TEST(Checker, UnknownAttribute_NamedWithWhatWasMeant) {
    EXPECT_THAT(CheckText(WithSections("<monitor enable='true'/>")),
                ElementsAre("f.xml:1: error: unknown attribute \"enable\" of <monitor>; did you mean \"enabled\"?"));
    EXPECT_THAT(CheckText(WithSections("<monitor colour='red'/>")),
                ElementsAre("f.xml:1: error: unknown attribute \"colour\" of <monitor>"));
}

TEST(Checker, ElementWrittenAsAttribute_ToldSo) {
    EXPECT_THAT(CheckText(WithSections("<monitor frequency='5'/>")),
                ElementsAre("f.xml:1: error: unknown attribute \"frequency\" of <monitor>; it is an element: "
                            "<frequency>...</frequency>"));
}

TEST(Checker, AttributeWrittenAsElement_ToldSo) {
    EXPECT_THAT(CheckText(WithSections("<monitor><enabled>true</enabled></monitor>")),
                ElementsAre("f.xml:1: error: unknown element <enabled> in <monitor>; it is an attribute: "
                            "<monitor enabled=\"...\">"));
}

TEST(Checker, WrongValues_SubjectValueAndLimit) {
    EXPECT_THAT(CheckText(WithSections("<registry port='65536'/>")),
                ElementsAre("f.xml:1: error: attribute \"port\" of <registry>: \"65536\" is above the limit of 65535"));
    EXPECT_THAT(CheckText(WithSections("<monitor><frequency>0</frequency></monitor>")),
                ElementsAre("f.xml:1: error: <frequency>: \"0\" is below the limit of 1"));
    EXPECT_THAT(CheckText(WithSections("<timesync><delta>-1</delta></timesync>")),
                ElementsAre("f.xml:1: error: <delta>: \"-1\" is below the limit of 0"));
    EXPECT_THAT(CheckText(WithSections("<monitor enabled='maybe'/>")),
                ElementsAre("f.xml:1: error: attribute \"enabled\" of <monitor>: \"maybe\" is not a boolean (true, "
                            "false, 1, 0, yes, no, on, off)"));
    EXPECT_THAT(CheckText(WithSections("<monitor><filter><relative>-2</relative></filter></monitor>")),
                ElementsAre("f.xml:1: error: <relative>: \"-2\" is below the limit of 0"));
}

TEST(Checker, HexadecimalTableRow_Error) {
    EXPECT_THAT(CheckText(WithSections("<temperature_control><fans><set lower='0x28' upper='50' rpm='3000'/></fans>"
                                       "</temperature_control>")),
                ElementsAre("f.xml:1: error: attribute \"lower\" of <set>: \"0x28\" is not a whole number"));
}

TEST(Checker, SpeedsBeyondTheFans_Error) {
    EXPECT_THAT(CheckText(WithSections("<temperature_control><fans>\n<set lower='1' upper='2' rpm='2499'/>\n"
                                       "<set lower='2' upper='3' rpm='6501'/></fans></temperature_control>")),
                ElementsAre("f.xml:2: error: attribute \"rpm\" of <set>: \"2499\" is below the limit of 2500",
                            "f.xml:3: error: attribute \"rpm\" of <set>: \"6501\" is above the limit of 6500"));
}

TEST(Checker, BlanksAroundAValue_ToldSo) {
    EXPECT_THAT(CheckText(WithSections("<monitor><frequency> 60\n</frequency></monitor>")),
                ElementsAre("f.xml:1: error: <frequency>: \" 60?\" has blanks around the value, which may have none"));
}

TEST(Checker, MissingValue_SaysWhatIsExpected) {
    EXPECT_THAT(CheckText(WithSections("<timesync><delta/></timesync>")),
                ElementsAre("f.xml:1: error: <delta>: the value is missing (whole number 0..2147483647, or hexadecimal "
                            "with 0x)"));
}

TEST(Checker, EndlessValue_IsCut) {
    const auto findings =
        CheckText(WithSections("<monitor><frequency>" + std::string(100'000, 'x') + "</frequency></monitor>"));
    EXPECT_THAT(findings,
                ElementsAre("f.xml:1: error: <frequency>: \"" + std::string(60, 'x') + "...\" is not a whole number"));
}

TEST(Checker, MissingAttributes_EachNamed) {
    EXPECT_THAT(CheckText(WithSections("<temperature_control><fans>\n<set rpm='3000'/></fans></temperature_control>")),
                ElementsAre("f.xml:2: error: <set> lacks the attribute \"lower\" (whole number 0..4294967295)",
                            "f.xml:2: error: <set> lacks the attribute \"upper\" (whole number 0..4294967295)"));
}

TEST(Checker, MissingSection_Named) {
    EXPECT_THAT(CheckText("<zelkor/>"), IsEmpty());
}

TEST(Checker, SecondSection_SaysWhereTheFirstIs) {
    EXPECT_THAT(CheckText(WithSections("\n<monitor enabled='1'/>\n\n<monitor enabled='0'/>")),
                ElementsAre("f.xml:4: error: second <monitor> in <zelkor>; one only may be there, the first is in line "
                            "2"));
}

TEST(Checker, StrayText_Named) {
    EXPECT_THAT(CheckText(WithSections("<monitor>60</monitor>")),
                ElementsAre("f.xml:1: error: stray text \"60\" in <monitor>"));
    EXPECT_THAT(CheckText(WithSections("\n<registry>\n<write from='::1'> x </write></registry>")),
                ElementsAre("f.xml:3: error: stray text \"x\" in <write>"));
}

TEST(Checker, BlanksAndComments_AreNoText) {
    EXPECT_THAT(CheckText(WithSections("<registry> <!-- c -->\n<write from='::1'> <!-- c --> </write>\t</registry>")),
                IsEmpty());
}

TEST(Checker, SensorList_BadIdAndBadTypeOfBoard) {
    EXPECT_THAT(
        CheckText(WithSections("<damage_protection><sensors>\n<include boardType='procesor'>1</include>\n"
                               "<exclude>1; 2</exclude></sensors></damage_protection>")),
        ElementsAre(
            "f.xml:2: error: attribute \"boardType\" of <include>: \"procesor\" is not the name of a board "
            "type; did you mean \"processor\"?",
            "f.xml:3: error: <exclude>: \"1; 2\" holds \"1; 2\", which is not an id (decimal or 0x, 32 bits, no "
            "blanks)"));
}

TEST(Checker, BoardBesideBoardType_Warning) {
    EXPECT_THAT(CheckText(WithSections("<monitor><sensors><include board='io/1' boardType='io'>all</include></sensors>"
                                       "</monitor>")),
                ElementsAre("f.xml:1: warning: attribute \"board\" of <include> is passed over beside \"boardType\""));
}

TEST(Checker, BoardTypeNone_WarnsThatTheEntryMeansAllBoards) {
    EXPECT_THAT(
        CheckText(WithSections("<monitor><sensors><exclude boardType='none'>all</exclude>\n"
                               "<exclude boardType='255' board='io/1'>all</exclude></sensors></monitor>")),
        ElementsAre("f.xml:1: warning: attribute \"boardType\" of <exclude> is \"none\" and counts as left out: "
                    "\"board\" tells the boards, all of them by default",
                    "f.xml:2: warning: attribute \"boardType\" of <exclude> is \"255\" and counts as left out: "
                    "\"board\" tells the boards, all of them by default"));
}

TEST(Checker, EmptySection_Warning) {
    EXPECT_THAT(CheckText(WithSections("<monitor>\n</monitor>")),
                ElementsAre("f.xml:1: warning: <monitor> is empty and counts as absent"));
}

TEST(Checker, SchemaHintOfTheRoot_PassesThere) {
    const std::string hint =
        " xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='zelkor.xsd'";
    EXPECT_THAT(CheckText("<zelkor" + hint + "><boards chassis='c.xml'/></zelkor>"), IsEmpty());
    EXPECT_THAT(CheckText("<zelkor><boards" + hint + " chassis='c.xml'/></zelkor>"),
                ElementsAre("f.xml:1: error: unknown attribute \"noNamespaceSchemaLocation\" of <boards>"));
}

TEST(Checker, Findings_ComeInDocumentOrder) {
    EXPECT_THAT(CheckText("<zelkor>\n<timesync><delta>x</delta></timesync>\n<monitor enabled='x'>\n<y/>\n</monitor>\n"
                          "<boards backend='simm'/>\n</zelkor>"),
                ElementsAre(testing::StartsWith("f.xml:2: "), testing::StartsWith("f.xml:3: "),
                            testing::StartsWith("f.xml:4: "), testing::StartsWith("f.xml:6: ")));
}

TEST(Checker, WarningsAlone_AreNoError) {
    const auto document = qcfg::ReadXmlText(WithSections("<monitor/>"), "f.xml");
    const qcfg::Findings warning = qcfg::CheckConfiguration(*document, DaemonRules());
    ASSERT_EQ(warning.size(), 1U);
    EXPECT_FALSE(qcfg::HasError(warning));
    EXPECT_FALSE(qcfg::HasError({}));
    EXPECT_TRUE(qcfg::HasError({{qcfg::Severity_e::warning, 1, "w"}, {qcfg::Severity_e::error, 2, "e"}}));
}

/// A second backend beside the simulated one, as a program may offer it.
qcfg::ElementRule RulesOfTwoBackends() {
    qcfg::VariantRule other{.name = "other", .doc = "Another way."};
    other.attributes = {{.name = "bus", .type = qcfg::Whole(0, 9), .isRequired = true, .doc = "A number."}};
    other.children = {
        {.name = "board",
         .occurrence = qcfg::Occurrence_e::any,
         .doc = "A board.",
         .attributes = {{.name = "uri", .type = qcfg::Text("board"), .isRequired = true, .doc = "Name."}}}};
    return qapp::ConfigurationRules({bmc::sim::ConfigurationRule(), other}, {});
}

TEST(Checker, Backend_ChoosesWhatBoardsHold) {
    const qcfg::ElementRule rules = RulesOfTwoBackends();
    EXPECT_THAT(CheckText("<zelkor><boards backend='other' bus='1'><board uri='a/1'/></boards></zelkor>", rules),
                IsEmpty());
    EXPECT_THAT(CheckText("<zelkor><boards backend='other' chassis='c.xml'/></zelkor>", rules),
                ElementsAre("f.xml:1: error: unknown attribute \"chassis\" of <boards>",
                            "f.xml:1: error: <boards> lacks the attribute \"bus\" (whole number 0..9)"));
    EXPECT_THAT(
        CheckText("<zelkor><boards backend='sim' chassis='c.xml'>\n<board uri='a/1'/></boards></zelkor>", rules),
        ElementsAre("f.xml:2: error: unknown element <board> in <boards>"));
}

TEST(Checker, NoBackendNamed_TheFirstHolds) {
    EXPECT_THAT(CheckText("<zelkor><boards chassis='c.xml' control='s'/></zelkor>", RulesOfTwoBackends()), IsEmpty());
}

TEST(Checker, UnknownBackend_NamedOnce) {
    EXPECT_THAT(CheckText("<zelkor><boards backend='smi' bus='1' chassis='c.xml'/></zelkor>", RulesOfTwoBackends()),
                ElementsAre("f.xml:1: error: attribute \"backend\" of <boards>: \"smi\" is not known (known: sim, "
                            "other)"));
}

}  // namespace
