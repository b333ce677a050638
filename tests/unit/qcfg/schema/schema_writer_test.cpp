#include "qcfg/schema_writer.h"

#include <gmock/gmock.h>

#include "qcfg/value_types.h"
#include "qstd/exception.h"
#include "rules_support.h"
#include "schema_validator.h"

namespace {

using test::WithSections;

/// A document and whether the checker and the schema call it good. Where the two differ the case says why.
struct Case {
    const char* name;
    std::string document;
    bool isGoodByChecker;
    bool isGoodBySchema;
};

std::string Monitor(const std::string& content) {
    return WithSections("<monitor>" + content + "</monitor>");
}

std::string Sensors(const std::string& entries) {
    return Monitor("<sensors>" + entries + "</sensors>");
}

std::string Fans(const std::string& rows) {
    return WithSections("<temperature_control><fans>" + rows + "</fans></temperature_control>");
}

std::vector<Case> GoodDocuments() {
    return {
        {"least", WithSections(""), true, true},
        {"every boolean",
         WithSections("<monitor enabled='YES'><filter><absolute enabled='0'/><relative enabled='oFF'>1</relative>"
                      "</filter></monitor>"),
         true, true},
        {"any order",
         "<zelkor><timesync><delta>0</delta><frequency>1</frequency></timesync><boards control='s' "
         "chassis='c' backend='sim'/><registry/></zelkor>",
         true, true},
        {"limits of numbers", Monitor("<frequency>2147483647</frequency>"), true, true},
        {"plus and leading zeros", Monitor("<frequency>+007</frequency>"), true, true},
        {"hexadecimal text", Monitor("<frequency>0x00000001F</frequency>"), true, true},
        {"hexadecimal real", Monitor("<filter><relative>0x10</relative></filter>"), true, true},
        {"forms of real", Monitor("<filter><relative>.5e1</relative></filter>"), true, true},
        {"real with point at its end", Monitor("<filter><relative>5.</relative></filter>"), true, true},
        {"port limits", WithSections("<registry port='0' listen='::' push='on'/>"), true, true},
        {"prefixes",
         WithSections("<registry><write from='10.0.0.0/8'/><write from='fe80::/10'/><write from='::1'/>"
                      "<write from='::ffff:1.2.3.4'/></registry>"),
         true, true},
        {"sensor lists",
         Sensors("<include>all</include><exclude>0x30,49</exclude><include>,1,,2,</include>"
                 "<exclude board='io/1'>-1</exclude>"),
         true, true},
        {"types of board", Sensors("<include boardType='icb'>1</include><include boardType='044'>1</include>"), true,
         true},
        {"rows", Fans("<set lower='0' upper='4294967295' rpm='2500'/><set upper='2' lower='1' rpm='6500'/>"), true,
         true},
        {"no rows", Fans(""), true, true},
        {"comments and blanks", Fans(" <!-- a --> <set lower='1' upper='2' rpm='3000'> <!-- b --> </set> "), true,
         true},
        {"text in pieces", Monitor("<frequency>6<!-- c -->0</frequency>"), true, true},
        {"character data", Monitor("<frequency><![CDATA[60]]></frequency>"), true, true},
        {"schema hint",
         "<zelkor xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='z.xsd'><boards "
         "chassis='c'/></zelkor>",
         true, true},
    };
}

std::vector<Case> BadDocuments() {
    return {
        {"no boards", "<zelkor/>", true, true},
        {"no chassis", "<zelkor><boards backend='sim'/></zelkor>", true, true},
        {"empty chassis", "<zelkor><boards chassis=''/></zelkor>", false, false},
        {"unknown backend", "<zelkor><boards backend='smi' chassis='c'/></zelkor>", false, false},
        {"unknown section", WithSections("<monitr enabled='1'/>"), false, false},
        {"unknown element", Monitor("<frequenzy>1</frequenzy>"), false, false},
        {"unknown element in a list", Sensors("<includes>1</includes>"), false, false},
        {"unknown attribute", WithSections("<monitor enable='1'/>"), false, false},
        {"second section", WithSections("<monitor enabled='1'/><monitor enabled='1'/>"), false, false},
        {"second value", Monitor("<frequency>1</frequency><frequency>2</frequency>"), false, false},
        {"second list", Monitor("<sensors/><sensors/>"), false, false},
        {"stray text", Monitor("60"), false, false},
        {"stray text in an empty element", Monitor("<filter><absolute>true</absolute></filter>"), false, false},
        {"children in a value", Monitor("<frequency><seconds/>1</frequency>"), false, false},
        {"period of zero", Monitor("<frequency>0</frequency>"), false, false},
        {"negative period", Monitor("<frequency>-1</frequency>"), false, false},
        {"period above 32 bits", Monitor("<frequency>2147483648</frequency>"), false, false},
        {"no number", Monitor("<frequency>12abc</frequency>"), false, false},
        {"no value", Monitor("<frequency/>"), false, false},
        {"hexadecimal without digits", Monitor("<frequency>0x</frequency>"), false, false},
        {"bad hexadecimal", Monitor("<frequency>0x1G</frequency>"), false, false},
        {"hexadecimal above 32 bits", Monitor("<frequency>0x100000000</frequency>"), false, false},
        {"negative delta", WithSections("<timesync><delta>-1</delta></timesync>"), false, false},
        {"bad boolean", WithSections("<monitor enabled='maybe'/>"), false, false},
        {"blanks around a boolean", WithSections("<monitor enabled=' true'/>"), false, false},
        {"negative percent", Monitor("<filter><relative>-0.5</relative></filter>"), false, false},
        {"percent not a number", Monitor("<filter><relative>NaN</relative></filter>"), false, false},
        {"infinite percent", Monitor("<filter><relative>INF</relative></filter>"), false, false},
        {"no percent", Monitor("<filter><relative enabled='false'/></filter>"), false, false},
        {"port too high", WithSections("<registry port='65536'/>"), false, false},
        {"hexadecimal port", WithSections("<registry port='0x50'/>"), false, false},
        {"name as address", WithSections("<registry listen='localhost'/>"), false, false},
        {"prefix as address", WithSections("<registry listen='10.0.0.0/8'/>"), false, false},
        {"prefix too long", WithSections("<registry><write from='10.0.0.0/33'/></registry>"), false, false},
        {"octet with leading zero", WithSections("<registry><write from='010.0.0.1'/></registry>"), false, false},
        {"TLS without a certificate", WithSections("<registry><tls key='b' ca='c'/></registry>"), false, false},
        {"blank in a list", Sensors("<include>16, 17</include>"), false, false},
        {"all in a list", Sensors("<include>16,all</include>"), false, false},
        {"empty list", Sensors("<include/>"), false, false},
        {"commas alone", Sensors("<include>,,</include>"), false, false},
        {"type of board in other case", Sensors("<include boardType='Processor'>1</include>"), false, false},
        {"type of board unknown", Sensors("<include boardType='9999'>1</include>"), false, false},
        {"row without limits", Fans("<set rpm='3000'/>"), false, false},
        {"hexadecimal row", Fans("<set lower='0x28' upper='50' rpm='3000'/>"), false, false},
        {"negative row", Fans("<set lower='-1' upper='50' rpm='3000'/>"), false, false},
        {"too slow", Fans("<set lower='40' upper='50' rpm='2499'/>"), false, false},
        {"too fast", Fans("<set lower='40' upper='50' rpm='6501'/>"), false, false},
    };
}

/// Where the schema is weaker, and the one place where it is stricter: it knows namespaces.
std::vector<Case> DifferentVerdicts() {
    return {
        {"blanks around a number are passed over", Monitor("<frequency> 60 </frequency>"), false, true},
        {"blanks around the number of a type of board", Sensors("<include boardType=' 44 '>1</include>"), false, true},
        {"hexadecimal numbers keep no range", Monitor("<frequency>0x0</frequency>"), false, true},
        {"hexadecimal numbers keep no range", Monitor("<frequency>0x80000000</frequency>"), false, true},
        {"numbers of a list keep no range", Sensors("<include>2147483648</include>"), false, true},
        {"clients are not asked for their names", WithSections("<registry><write/></registry>"), false, true},
        {"TLS is not counted beside what may repeat",
         WithSections(
             "<registry><tls certificate='a' key='b' ca='c'/><tls certificate='a' key='b' ca='c'/></registry>"),
         false, true},
        {"subjects of certificates are any text",
         WithSections("<registry><read subject='x'/><tls certificate='a' key='b' ca='c'/></registry>"), false, true},
        {"TLS is not asked for its key", WithSections("<registry><tls certificate='a' ca='c'/></registry>"), false,
         true},
        {"IPv6 addresses are seen by their letters", WithSections("<registry listen='1::2::3'/>"), false, true},
        {"a namespace is not seen by the checker", "<zelkor xmlns='urn:x'><boards chassis='c.xml'/></zelkor>", true,
         false},
    };
}

class Verdicts : public testing::TestWithParam<Case> {};

TEST_P(Verdicts, CheckerAndSchema_AsListed) {
    test::SchemaValidator validator(qcfg::WriteSchema(DaemonRules()));
    const auto document = qcfg::ReadXmlText(GetParam().document, "f.xml");
    const qcfg::Findings findings = qcfg::CheckConfiguration(*document, DaemonRules());
    EXPECT_EQ(!qcfg::HasError(findings), GetParam().isGoodByChecker)
        << GetParam().document << testing::PrintToString(test::CheckText(GetParam().document));
    const std::string errors = validator.FindErrors(GetParam().document);
    EXPECT_EQ(errors.empty(), GetParam().isGoodBySchema) << GetParam().document << '\n' << errors;
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
    std::string name = std::to_string(info.index) + "_";
    for (const char letter : std::string(info.param.name)) {
        name += letter == ' ' ? "_" : std::string(1, letter);
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Good, Verdicts, testing::ValuesIn(GoodDocuments()), CaseName);
INSTANTIATE_TEST_SUITE_P(Bad, Verdicts, testing::ValuesIn(BadDocuments()), CaseName);
INSTANTIATE_TEST_SUITE_P(Different, Verdicts, testing::ValuesIn(DifferentVerdicts()), CaseName);

TEST(SchemaWriter, Explanations_AreAnnotations) {
    const std::string schema = qcfg::WriteSchema(DaemonRules());
    EXPECT_THAT(schema, testing::HasSubstr("<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\""));
    EXPECT_THAT(schema, testing::HasSubstr("<xs:documentation>Seconds from the end of one pass to the begin of the "
                                           "next. Default: 60.</xs:documentation>"));
    EXPECT_THAT(schema, testing::HasSubstr("<xs:documentation>Fan speed, revolutions per minute.</xs:documentation>"));
}

TEST(SchemaWriter, ChildrenOfWhichNoneRepeats_AreCounted) {
    EXPECT_THAT(qcfg::WriteSchema(DaemonRules()), testing::HasSubstr("<xs:all>"));
}

TEST(SchemaWriter, AChildThatRepeats_TheOthersAreNotCounted) {
    qcfg::ElementRule rule{.name = "root", .doc = "A root."};
    rule.children = {{.name = "one", .occurrence = qcfg::Occurrence_e::once, .doc = "One."},
                     {.name = "many", .occurrence = qcfg::Occurrence_e::any, .doc = "Many."}};
    test::SchemaValidator validator(qcfg::WriteSchema(rule));
    for (const std::string document : {"<root><many/><one/><many/></root>", "<root/>", "<root><one/><one/></root>"}) {
        EXPECT_EQ(validator.FindErrors(document), "") << document;
    }
    EXPECT_THAT(test::CheckText("<root/>", rule), testing::SizeIs(1));
    EXPECT_THAT(test::CheckText("<root><one/><one/></root>", rule), testing::SizeIs(1));
    EXPECT_NE(validator.FindErrors("<root><other/></root>"), "");
}

TEST(SchemaWriter, TwoVariants_BothAllowedAndNeitherDemanded) {
    qcfg::ElementRule rule{.name = "root", .doc = "A root."};
    rule.variantAttribute = "kind";
    rule.variantDoc = "Which.";
    for (const std::string name : {"a", "b"}) {
        rule.variants.push_back({.name = name, .doc = "A kind."});
        rule.variants.back().attributes = {
            {.name = name + "-id", .type = qcfg::Whole(0, 9), .isRequired = true, .doc = "A number."}};
    }
    test::SchemaValidator validator(qcfg::WriteSchema(rule));
    EXPECT_EQ(validator.FindErrors("<root kind='b' b-id='1'/>"), "");
    EXPECT_EQ(validator.FindErrors("<root kind='b' a-id='1'/>"), "");  // weaker than the checker
    EXPECT_NE(validator.FindErrors("<root kind='c'/>"), "");
    EXPECT_THAT(test::CheckText("<root kind='b' a-id='1'/>", rule), testing::SizeIs(2));
}

TEST(SchemaWriter, TextOfExplanation_IsEscaped) {
    const qcfg::ElementRule rule{.name = "root", .doc = "Less < more & \"more\"."};
    EXPECT_EQ(test::SchemaValidator(qcfg::WriteSchema(rule)).FindErrors("<root/>"), "");
    EXPECT_THAT(qcfg::WriteSchema(rule), testing::HasSubstr("Less &lt; more &amp; "));
}

TEST(SchemaWriter, DifferentTypesOfOneName_Refused) {
    qcfg::ElementRule rule{.name = "root", .doc = "A root."};
    rule.attributes = {{.name = "a", .type = qcfg::NameOrNumber("t", "thing", {{"x", 1}}), .doc = "A."},
                       {.name = "b", .type = qcfg::NameOrNumber("t", "thing", {{"y", 1}}), .doc = "B."}};
    EXPECT_THROW(qcfg::WriteSchema(rule), qstd::Exception);
}

}  // namespace
