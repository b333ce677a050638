#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "qapp/registry_settings.h"
#include "qcfg/configuration.h"
#include "qcfg/schema_writer.h"
#include "rules_support.h"
#include "schema_validator.h"
#include "tests/support/file.h"

namespace {

/// The configuration that the package installs.
constexpr const char* c_shipped = ZELKOR_SOURCE_DIR "/packaging/etc/zelkor-platformd.xml";

std::string ExampleFile(const std::string& name) {
    return ZELKOR_SOURCE_DIR "/examples/config/" + name;
}

void ExpectNoFinding(const std::string& file) {
    qcfg::Configuration configuration;
    ASSERT_NO_THROW(configuration.Load(file));
    for (const qcfg::Finding& finding : qcfg::CheckConfiguration(configuration.GetRoot(), DaemonRules())) {
        ADD_FAILURE() << qcfg::ToText(finding, file);
    }
}

std::vector<std::string> ExampleNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(ExampleFile(""))) {
        if (entry.path().extension() == ".xml") {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class Example : public testing::TestWithParam<std::string> {};

TEST_P(Example, LoadsWithoutAFinding) {
    ExpectNoFinding(ExampleFile(GetParam() + ".xml"));
}

TEST_P(Example, IsValidByTheSchema) {
    test::SchemaValidator validator(qcfg::WriteSchema(DaemonRules()));
    EXPECT_EQ(validator.FindErrors(test::ReadFile(ExampleFile(GetParam() + ".xml"))), "");
}

INSTANTIATE_TEST_SUITE_P(Examples, Example, testing::ValuesIn(ExampleNames()),
                         [](const testing::TestParamInfo<std::string>& example) { return example.param; });

TEST(Examples, TheFiveAreThere) {
    EXPECT_THAT(ExampleNames(), testing::IsSupersetOf({"demo", "full", "ipmi", "minimal", "tls"}));
}

/// Every element and attribute of the rules, by path. The depth is that of the table.
// NOLINTNEXTLINE(misc-no-recursion)
void CollectRules(const qcfg::ElementRule& given, const std::string& parent, std::set<std::string>& paths) {
    const qcfg::ElementRule rule = qcfg::WithAllVariants(given);
    const std::string path = parent + "/" + rule.name;
    paths.insert(path);
    for (const qcfg::AttributeRule& attribute : rule.attributes) {
        paths.insert(path + "/@" + attribute.name);
    }
    for (const qcfg::ElementRule& child : rule.children) {
        CollectRules(child, path, paths);
    }
}

// NOLINTNEXTLINE(misc-no-recursion)
void CollectElements(const qcfg::Element& element, const std::string& parent, std::set<std::string>& paths) {
    const std::string path = parent + "/" + element.GetName();
    paths.insert(path);
    for (const auto& attribute : element.GetAttributes()) {
        paths.insert(path + "/@" + attribute->GetName());
    }
    for (const auto& child : element.GetChildren()) {
        CollectElements(*child, path, paths);
    }
}

/// A file has one way to the boards only; and of TLS what excludes what is there, or depends on more files, stands in a
/// comment.
TEST(Examples, FullIpmiAndTls_ShowEveryElementAndAttribute) {
    std::set<std::string> known;
    CollectRules(DaemonRules(), "", known);
    std::set<std::string> shown;
    CollectElements(*qcfg::ReadXmlFile(ExampleFile("full.xml")), "", shown);
    CollectElements(*qcfg::ReadXmlFile(ExampleFile("ipmi.xml")), "", shown);
    CollectElements(*qcfg::ReadXmlFile(ExampleFile("tls.xml")), "", shown);
    for (const std::string name : {"key-credential", "crl"}) {
        EXPECT_THAT(test::ReadFile(ExampleFile("tls.xml")), testing::HasSubstr(" " + name + "=\""));
        shown.insert("/zelkor/registry/tls/@" + name);
    }
    EXPECT_EQ(shown, known);
}

TEST(ShippedConfiguration, LoadsWithoutAFindingAndIsValidByTheSchema) {
    ExpectNoFinding(c_shipped);
    test::SchemaValidator validator(qcfg::WriteSchema(DaemonRules()));
    EXPECT_EQ(validator.FindErrors(test::ReadFile(c_shipped)), "");
}

TEST(ShippedConfiguration, OnlyTheLocalHostMayWrite) {
    qcfg::Configuration configuration;
    configuration.Load(c_shipped);
    const qreg::ServerSettings settings = qapp::ReadRegistrySettings(configuration, {}, {});
    EXPECT_TRUE(settings.mayWrite.Contains({"127.0.0.1"}));
    EXPECT_TRUE(settings.mayWrite.Contains({"::1"}));
    EXPECT_FALSE(settings.mayWrite.Contains({"10.0.0.1"}));
    EXPECT_FALSE(settings.mayWrite.Contains({"fe80::1"}));
    EXPECT_TRUE(settings.listen.empty());
}

/// What `make run` shows: readings of every two seconds, recorded on change.
TEST(Examples, Demo_WatchesEveryTwoSeconds) {
    qcfg::Configuration configuration;
    configuration.Load(ExampleFile("demo.xml"));
    const auto sections = configuration.FindSections("monitor");
    ASSERT_EQ(sections.size(), 1U);
    int frequency = 0;
    EXPECT_TRUE(sections[0]->GetValue("frequency", frequency));
    EXPECT_EQ(frequency, 2);
}

}  // namespace
