// Every element and attribute of the daemon's configuration with every kind of value, right and wrong: what the checker
// takes the schema takes, and what the checker refuses the schema refuses, but for what the reference page says of it.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "qcfg/schema_writer.h"
#include "rules_support.h"
#include "schema_validator.h"

namespace {

using qcfg::Place_e;

/// Values of all kinds of types, and ways to get each wrong.
const std::vector<std::string> c_values{"",
                                        " ",
                                        "x",
                                        "true",
                                        "OFF",
                                        "maybe",
                                        " true",
                                        "0",
                                        "1",
                                        "2",
                                        "-1",
                                        "+1",
                                        "007",
                                        "15",
                                        "17",
                                        "60",
                                        " 60",
                                        "60 ",
                                        "254",
                                        "255",
                                        "256",
                                        "3000",
                                        "2499",
                                        "6501",
                                        "65535",
                                        "65536",
                                        "100000",
                                        "2147483647",
                                        "2147483648",
                                        "4294967295",
                                        "4294967296",
                                        "99999999999999999999",
                                        "-99999999999999999999",
                                        "1.5",
                                        "-0.5",
                                        ".",
                                        "1e3",
                                        "1e999",
                                        "nan",
                                        "inf",
                                        "0x",
                                        "0x0",
                                        "0x10",
                                        "0x82",
                                        "0x83",
                                        "0xffff",
                                        "0xffffffff",
                                        "0x100000000",
                                        "0x1G",
                                        "0X10",
                                        "all",
                                        "All",
                                        "1,2",
                                        ",1,",
                                        ",,",
                                        "1, 2",
                                        "1,all",
                                        "1,0x",
                                        "1,2147483648",
                                        "none",
                                        "icb",
                                        "Icb",
                                        "44",
                                        "9999",
                                        "operator",
                                        "root",
                                        "process",
                                        "workers",
                                        "sim",
                                        "ipmi",
                                        "10.0.0.1",
                                        "10.0.0.256",
                                        "010.0.0.1",
                                        "10.0.0.0/8",
                                        "10.0.0.0/33",
                                        "::1",
                                        "::/129",
                                        "1::2::3",
                                        "fe80::1%eth0",
                                        "localhost",
                                        "CN=operator,O=Lab",
                                        "CN=,",
                                        "a/b",
                                        "../x",
                                        "0x30 0x10 {addr:hi} {addr:lo}",
                                        "0x30 0x10 {addr}",
                                        "{value:hi}",
                                        "*",
                                        "0x30 256"};

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char letter : text) {
        escaped += letter == '&'    ? "&amp;"
                   : letter == '<'  ? "&lt;"
                   : letter == '\'' ? "&apos;"
                                    : std::string(1, letter);
    }
    return escaped;
}

/// Some value that the type takes.
std::string Sample(const qcfg::ValueType& type, Place_e place) {
    const auto found = std::find_if(c_values.begin(), c_values.end(),
                                    [&](const std::string& value) { return type.FindFault(value, place).empty(); });
    if (found == c_values.end()) {
        ADD_FAILURE() << "no value for " << type.Describe(place);
        return {};
    }
    return *found;
}

/// Where one of several attributes must be there: whether @p known is the one that stands in for @p given.
bool IsOneOfSeveral(const qcfg::ElementRule& rule, const qcfg::AttributeRule& known, const std::string& given) {
    static const std::map<std::string, std::string> usual{{"read", "from"}, {"write", "from"}, {"tls", "key"}};
    const auto found = usual.find(rule.name);
    const bool isTheOther = given == "key-credential";
    return found != usual.end() && known.name == found->second && !isTheOther;
}

/// The document with what the attribute cannot be without: subjects of certificates without TLS, its address without
/// its port.
std::string WithCompany(const std::string& attribute, std::string document) {
    const auto insert = [&document](const std::string& before, const std::string& text) {
        if (const std::size_t place = document.find(before); place != std::string::npos) {
            document.insert(place, text);
        }
    };
    if (attribute == "subject") {
        insert("</registry>", "<tls certificate='c' key='k' ca='a'/>");
    } else if (attribute == "listen") {
        insert("></tls>", " port='1'");
    }
    return document;
}

/// The element with all that it must have. @param attribute,value an attribute set to this value
/// @param content in place of the text or the children that must be there
std::string Write(const qcfg::ElementRule& rule, const std::string& attribute = "", const std::string& value = "",
                  const std::string* content = nullptr) {
    std::string text = "<" + rule.name;
    for (const qcfg::AttributeRule& known : rule.attributes) {
        if (known.name == attribute) {
            text += " " + attribute + "='" + Escaped(value) + "'";
        } else if (known.isRequired || IsOneOfSeveral(rule, known, attribute)) {
            text += " " + known.name + "='" + Escaped(Sample(*known.type, Place_e::attribute)) + "'";
        }
    }
    text += ">";
    if (content != nullptr) {
        text += *content;
    } else if (rule.text != nullptr) {
        text += Escaped(Sample(*rule.text, Place_e::text));
    }
    return text + "</" + rule.name + ">";
}

/// Visits every element of the table, each variant of a rule on its own. @param around puts the element into a document
using Around = std::function<std::string(const std::string& element)>;
using Visitor = std::function<void(const qcfg::ElementRule& rule, const std::string& path, const Around& around)>;
// NOLINTNEXTLINE(misc-no-recursion)
void Visit(const qcfg::ElementRule& rule, const std::string& parent, const Around& around, const Visitor& visitor) {
    if (!rule.variants.empty()) {
        for (const qcfg::VariantRule& variant : rule.variants) {
            qcfg::Element choice(rule.name);
            choice.AddAttr(std::make_shared<qcfg::Attribute>(rule.variantAttribute, variant.name));
            qcfg::ElementRule chosen = qcfg::WithChosenVariant(rule, choice);
            for (qcfg::AttributeRule& attribute : chosen.attributes) {
                attribute.isRequired = attribute.isRequired || attribute.name == rule.variantAttribute;
            }
            const auto withChoice = [around, name = rule.variantAttribute, sample = variant.name](std::string element) {
                const std::string before = name + "='" + "sim'";
                const std::size_t at = element.find(before);
                return around(at == std::string::npos ? element
                                                      : element.replace(at, before.size(), name + "='" + sample + "'"));
            };
            Visit(chosen, parent, withChoice, visitor);
        }
        return;
    }
    const std::string path = parent + "/" + rule.name;
    visitor(rule, path, around);
    for (const qcfg::ElementRule& child : rule.children) {
        const auto aroundChild = [&rule, &around](const std::string& element) {
            return around(Write(rule, "", "", &element));
        };
        Visit(child, path, aroundChild, visitor);
    }
}

bool IsGoodByChecker(const std::string& document) {
    return !qcfg::HasError(qcfg::CheckConfiguration(*qcfg::ReadXmlText(document, "f.xml"), DaemonRules()));
}

/// What the reference page says that the schema does not see.
bool IsKnownWeakness(const std::string& path, const std::string& value) {
    const auto holdsOnly = [](const std::string& text, const std::string& letters) {
        return !text.empty() && text.find_first_not_of(letters) == std::string::npos;
    };
    const bool isNumberWithBlanks = (value.front() == ' ' || value.back() == ' ') && holdsOnly(value, " 0123456789");
    const bool isHexOf32Bits =
        value.starts_with("0x") && value.size() <= 10 && holdsOnly(value.substr(2), "0123456789abcdefABCDEF");
    const bool isLikeIpv6 = value.find(':') != std::string::npos && holdsOnly(value, "0123456789abcdefABCDEF:./");
    const bool isListOfNumbers = path.find("clude") != std::string::npos && holdsOnly(value, "0123456789x-,");
    const bool isBeyondAnyNumber = value == "1e999";
    const bool isOtherBackend = path.ends_with("boards/@backend");
    const bool isClient = path.ends_with("/@subject");
    return isNumberWithBlanks || isHexOf32Bits || isLikeIpv6 || isListOfNumbers || isBeyondAnyNumber ||
           isOtherBackend || isClient;
}

class EveryRule : public testing::Test {
protected:
    /// Calls @p visitor with the document that holds one value, for every value of the table and everything that might
    /// stand there.
    static void ForEachValue(const std::function<void(const std::string& path, const std::string& value,
                                                      const std::string& document)>& visitor) {
        Visit(
            DaemonRules(), "", [](const std::string& element) { return element; },
            [&visitor](const qcfg::ElementRule& rule, const std::string& path, const Around& around) {
                for (const std::string& value : c_values) {
                    for (const qcfg::AttributeRule& attribute : rule.attributes) {
                        visitor(path + "/@" + attribute.name, value,
                                WithCompany(attribute.name, around(Write(rule, attribute.name, value))));
                    }
                    if (rule.text != nullptr) {
                        const std::string content = Escaped(value);
                        visitor(path, value, around(Write(rule, "", "", &content)));
                    }
                }
            });
    }

    test::SchemaValidator m_schema{qcfg::WriteSchema(DaemonRules())};
};

TEST_F(EveryRule, CheckerAndSchema_TakeAndRefuseTheSameButForKnownWeaknesses) {
    std::set<std::string> all;
    std::set<std::string> taken;
    std::set<std::string> refused;
    ForEachValue([&](const std::string& path, const std::string& value, const std::string& document) {
        all.insert(path);
        const bool isGood = IsGoodByChecker(document);
        (isGood ? taken : refused).insert(path);
        const std::string errors = m_schema.FindErrors(document);
        if (isGood) {
            EXPECT_EQ(errors, "") << path << " \"" << value << "\"\n" << document;
        } else if (errors.empty()) {
            EXPECT_TRUE(!value.empty() && IsKnownWeakness(path, value)) << path << " \"" << value << "\"";
        }
    });
    EXPECT_EQ(taken, all) << "there is a good value for each";
    EXPECT_EQ(refused, all) << "there is a wrong value for each";
    EXPECT_GT(all.size(), 40U);
}

TEST_F(EveryRule, WhatNoRuleKnows_BothRefuse) {
    Visit(
        DaemonRules(), "", [](const std::string& element) { return element; },
        [this](const qcfg::ElementRule& rule, const std::string& path, const Around& around) {
            const std::string element = Write(rule);
            ASSERT_TRUE(IsGoodByChecker(around(element))) << path << '\n' << around(element);
            const std::size_t tag = rule.name.size() + 1;
            const std::string withAttribute = element.substr(0, tag) + " bogus='1'" + element.substr(tag);
            const std::string withChild = element.substr(0, element.rfind("</")) + "<bogus/></" + rule.name + ">";
            for (const std::string& document : {around(withAttribute), around(withChild)}) {
                EXPECT_FALSE(IsGoodByChecker(document)) << document;
                EXPECT_NE(m_schema.FindErrors(document), "") << document;
            }
        });
}

}  // namespace
