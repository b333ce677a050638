#include "qcfg/element.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "qcfg/document.h"
#include "tests/support/log_capture.h"
#include "tests/support/trace_capture.h"

namespace {

using qcfg::Element;
using testing::IsEmpty;

constexpr const char* c_elementSource = "core/shared/qcfg/element";
constexpr const char* c_attributeSource = "core/shared/qcfg/attribute";

/// What every failure below must leave behind: one trace record at level 2, and nothing in the log.
class ConfigurationValue : public testing::Test {
protected:
    void ExpectTrace(const std::string& source, const std::string& function, const std::string& text) {
        const auto records = m_trace.Records();
        ASSERT_EQ(records.size(), ++m_expected) << text;
        EXPECT_EQ(records.back().level, 2);
        EXPECT_EQ(records.back().source, source);
        EXPECT_EQ(records.back().function, function);
        EXPECT_EQ(records.back().text, text);
        EXPECT_THAT(m_log.Messages(), IsEmpty());
    }

    template <class T>
    void ExpectElementFails(const std::string& text, const std::string& type, const std::string& reason) {
        T value{17};
        EXPECT_FALSE(Element("key", text).GetValue(value)) << text;
        EXPECT_EQ(value, T{17}) << text;
        ExpectTrace(c_elementSource, "bool qcfg::Element::GetValue(T&) const [with T = " + type + "]",
                    "Cannot cast from config value: " + reason);
    }

    template <class T>
    void ExpectElement(const std::string& text, T expected) {
        T value{};
        EXPECT_TRUE(Element("key", text).GetValue(value)) << text;
        EXPECT_EQ(value, expected) << text;
        EXPECT_EQ(m_trace.Records().size(), m_expected);
    }

    static Element WithAttribute(const std::string& name, const std::string& value) {
        Element element("row");
        element.AddAttr(std::make_shared<qcfg::Attribute>(name, value));
        return element;
    }

    const test::LogCapture m_log;
    const test::TraceCapture m_trace{2};
    std::size_t m_expected = 0;
};

TEST_F(ConfigurationValue, HexadecimalAndDecimalTexts_Convert) {
    ExpectElement<int>("0x1F", 31);
    ExpectElement<double>("0x10", 16.0);
    ExpectElement<double>("2.5", 2.5);
    ExpectElement<int>("+7", 7);
    ExpectElement<int>("-1", -1);
    ExpectElement<int>("0x0", 0);
    ExpectElement<int>("0xFFFFFFFF", -1);
    ExpectElement<double>("0xFFFFFFFF", 4294967295.0);
    ExpectElement<unsigned int>("4294967295", 4294967295U);
}

TEST_F(ConfigurationValue, HexadecimalPrefixAlone_IsReadAsDecimalAndFails) {
    ExpectElementFails<int>("0x", "int", "Bad cast from 0x to int");
}

TEST_F(ConfigurationValue, TextThatDoesNotConvert_KeepsTheValueAndIsTraced) {
    ExpectElementFails<int>("12abc", "int", "Bad cast from 12abc to int");
    ExpectElementFails<double>("abc", "double", "Bad cast from abc to double");
    ExpectElementFails<int>("", "int", "Bad cast from  to int");
    ExpectElementFails<int>(" 12", "int", "Bad cast from  12 to int");
    ExpectElementFails<int>("12 ", "int", "Bad cast from 12  to int");
    ExpectElementFails<int>("2.5", "int", "Bad cast from 2.5 to int");
    ExpectElementFails<int>("2147483648", "int", "Bad cast from 2147483648 to int");
    ExpectElementFails<int>("0X1F", "int", "Bad cast from 0X1F to int");
}

TEST_F(ConfigurationValue, HexadecimalTextThatDoesNotConvert_NamesTheTypeItIsReadAs) {
    ExpectElementFails<int>("0x1G", "int", "Bad hex cast from 0x1G to unsigned int");
    ExpectElementFails<double>("0xG", "double", "Bad hex cast from 0xG to unsigned int");
    ExpectElementFails<int>("0x100000000", "int", "Bad hex cast from 0x100000000 to unsigned int");
    ExpectElementFails<int>("0x-1", "int", "Bad hex cast from 0x-1 to unsigned int");
}

TEST_F(ConfigurationValue, BooleanElement) {
    ExpectElement<bool>("yes", true);
    ExpectElement<bool>("OFF", false);
    ExpectElement<bool>("0x1", true);
    bool value = true;
    EXPECT_FALSE(Element("key", "maybe").GetValue(value));
    EXPECT_TRUE(value);
    ExpectTrace(c_elementSource, "bool qcfg::Element::GetValue(T&) const [with T = bool]",
                "Cannot cast from config value: Bad bool cast from maybe");
}

TEST_F(ConfigurationValue, NamedChild_IsTheFirstOfThatName) {
    const auto element = qcfg::ReadXmlText("<a><x>1</x><b>2</b><b>3</b></a>", "test");
    int value = 17;
    EXPECT_TRUE(element->GetValue("b", value));
    EXPECT_EQ(value, 2);
}

TEST_F(ConfigurationValue, NamedChildThatIsNotThere_IsFalseWithoutTrace) {
    const auto element = qcfg::ReadXmlText("<a><b>2</b></a>", "test");
    int value = 17;
    EXPECT_FALSE(element->GetValue("c", value));
    EXPECT_FALSE(element->GetValue("B", value));
    EXPECT_FALSE(element->GetValue("", value));
    EXPECT_EQ(value, 17);
    EXPECT_THAT(m_trace.Records(), IsEmpty());
}

TEST_F(ConfigurationValue, NamedChildThatDoesNotConvert_KeepsTheValueAndIsTraced) {
    const auto element = qcfg::ReadXmlText("<a><b>12abc</b><b>3</b></a>", "test");
    int value = 17;
    EXPECT_FALSE(element->GetValue("b", value));
    EXPECT_EQ(value, 17);
    ExpectTrace(c_elementSource, "bool qcfg::Element::GetValue(T&) const [with T = int]",
                "Cannot cast from config value: Bad cast from 12abc to int");
}

TEST_F(ConfigurationValue, BooleanAttribute) {
    bool value = false;
    EXPECT_TRUE(WithAttribute("enabled", "Yes").GetAttrValue("enabled", value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(WithAttribute("enabled", "0").GetAttrValue("enabled", value));
    EXPECT_FALSE(value);
}

TEST_F(ConfigurationValue, BooleanAttributeThatDoesNotConvert_KeepsTheValueAndIsTraced) {
    for (const bool before : {false, true}) {
        bool value = before;
        EXPECT_FALSE(WithAttribute("enabled", "maybe").GetAttrValue("enabled", value));
        EXPECT_EQ(value, before);
        ExpectTrace(c_attributeSource, "bool qcfg::Attribute::GetValue(T&) const [with T = bool]",
                    "Cannot cast from config value: Wrong bool value maybe .Error: Bad bool cast from maybe");
    }
}

TEST_F(ConfigurationValue, AbsentAttribute_IsFalseWithoutTrace) {
    bool flag = true;
    EXPECT_FALSE(WithAttribute("enabled", "no").GetAttrValue("Enabled", flag));
    EXPECT_TRUE(flag);
    unsigned int number = 17;
    EXPECT_FALSE(Element("row").GetAttrValue("from", number));
    EXPECT_EQ(number, 17U);
    EXPECT_THAT(m_trace.Records(), IsEmpty());
}

TEST_F(ConfigurationValue, UnsignedAttributeThatDoesNotConvert_BecomesZeroAndIsTraced) {
    unsigned int number = 17;
    EXPECT_FALSE(WithAttribute("from", "x1").GetAttrValue("from", number));
    EXPECT_EQ(number, 0U);
    ExpectTrace(c_attributeSource, "bool qcfg::Attribute::GetValue(T&) const [with T = unsigned int]",
                "Cannot cast from config value: Bad cast from x1 to unsigned int");
    EXPECT_TRUE(WithAttribute("from", "40").GetAttrValue("from", number));
    EXPECT_EQ(number, 40U);
}

TEST_F(ConfigurationValue, HexadecimalAttribute_IsNotTaken) {
    unsigned int number = 17;
    EXPECT_FALSE(WithAttribute("from", "0x10").GetAttrValue("from", number));
    EXPECT_EQ(number, 0U);
    ExpectTrace(c_attributeSource, "bool qcfg::Attribute::GetValue(T&) const [with T = unsigned int]",
                "Cannot cast from config value: Bad cast from 0x10 to unsigned int");
}

TEST(ConfigurationValueTraceOff, FailuresStillReturnFalse_WithoutRecord) {
    for (const int level : {0, 1}) {
        const test::LogCapture log;
        const test::TraceCapture trace(level);
        int number = 17;
        EXPECT_FALSE(Element("key", "12abc").GetValue(number));
        EXPECT_EQ(number, 17);
        unsigned int attribute = 17;
        EXPECT_FALSE(qcfg::Attribute("from", "x1").GetValue(attribute));
        EXPECT_EQ(attribute, 0U);
        bool flag = true;
        EXPECT_FALSE(qcfg::Attribute("enabled", "maybe").GetValue(flag));
        EXPECT_TRUE(flag);
        EXPECT_THAT(trace.Records(), IsEmpty());
        EXPECT_THAT(log.Messages(), IsEmpty());
    }
}

TEST(Element, FindAttr_SetsTheResultOnlyWhenItIsThere) {
    const auto element = qcfg::ReadXmlText("<a b='1' c='2'/>", "test");
    std::shared_ptr<qcfg::Attribute> attribute;
    EXPECT_TRUE(element->FindAttr("c", attribute));
    EXPECT_EQ(attribute->GetName(), "c");
    EXPECT_EQ(attribute->GetValue(), "2");
    const auto before = attribute;
    EXPECT_FALSE(element->FindAttr("d", attribute));
    EXPECT_EQ(attribute, before);
}

TEST(Element, IsEmpty_WithoutAttributeChildAndText) {
    for (const char* text : {"<a/>", "<a></a>", "<a> \n\t</a>", "<a><!-- x --></a>"}) {
        EXPECT_TRUE(qcfg::ReadXmlText(text, "test")->IsEmpty()) << text;
    }
    for (const char* text : {"<a b=''/>", "<a><b/></a>", "<a>x</a>"}) {
        EXPECT_FALSE(qcfg::ReadXmlText(text, "test")->IsEmpty()) << text;
    }
}

}  // namespace
