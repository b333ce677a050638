#include "qcfg/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using qcfg::Configuration;

class Settings : public qcfg::ISerializable {
public:
    bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) override {
        ++calls;
        for (const auto& element : elements) {
            lines.push_back(element->GetLine());
        }
        if (toThrow) {
            toThrow();
        }
        return result;
    }
    std::string GetClassName() override { return "monitor"; }

    int calls = 0;
    std::vector<int> lines;
    bool result = true;
    std::function<void()> toThrow;
};

/// The lines of the sections that reach an object of the section "monitor".
std::vector<int> SectionsOf(const std::string& text) {
    Configuration configuration;
    configuration.LoadText(text, "f.xml");
    Settings settings;
    EXPECT_TRUE(configuration.Read(settings));
    EXPECT_EQ(settings.calls, 1);
    return settings.lines;
}

TEST(Configuration, Read_PassesTheSectionsOfThatNameInOrder) {
    EXPECT_THAT(SectionsOf("<zelkor>\n<monitor a='1'/>\n<timesync>x</timesync>\n<monitor>x</monitor>\n</zelkor>"),
                testing::ElementsAre(2, 4));
}

TEST(Configuration, Read_NoSuchSection_PassesNone) {
    EXPECT_THAT(SectionsOf("<zelkor><timesync>x</timesync></zelkor>"), testing::IsEmpty());
    EXPECT_THAT(SectionsOf("<zelkor/>"), testing::IsEmpty());
}

TEST(Configuration, Read_EmptySectionCountsAsAbsent) {
    EXPECT_THAT(SectionsOf("<zelkor><monitor/><monitor> \n </monitor><monitor><!-- x --></monitor></zelkor>"),
                testing::IsEmpty());
    EXPECT_THAT(SectionsOf("<zelkor><monitor/>\n<monitor a=''/></zelkor>"), testing::ElementsAre(2));
}

TEST(Configuration, Read_SectionsStandDirectlyUnderTheRoot) {
    EXPECT_THAT(SectionsOf("<zelkor a='1'><x><monitor a='1'/></x></zelkor>"), testing::IsEmpty());
}

TEST(Configuration, Read_NamesAreCaseSensitive) {
    EXPECT_THAT(SectionsOf("<zelkor><Monitor a='1'/></zelkor>"), testing::IsEmpty());
}

TEST(Configuration, Read_ReturnsWhatDeserializeReturns) {
    const Configuration configuration;
    Settings settings;
    EXPECT_TRUE(configuration.Read(settings));
    settings.result = false;
    EXPECT_FALSE(configuration.Read(settings));
}

TEST(Configuration, Read_LetsExceptionsThrough) {
    const Configuration configuration;
    Settings settings;
    settings.toThrow = [] { throw qstd::Exception("Bad cast from x to int"); };
    EXPECT_EQ(test::TextOf([&] { configuration.Read(settings); }), "Bad cast from x to int");
    settings.toThrow = [] { throw 5; };
    EXPECT_THROW(configuration.Read(settings), int);
}

TEST(Configuration, NothingLoaded_HasNoSection) {
    const Configuration configuration;
    EXPECT_EQ(configuration.GetRoot().GetName(), "zelkor");
    EXPECT_TRUE(configuration.GetRoot().IsEmpty());
    EXPECT_EQ(configuration.GetFileName(), "");
}

TEST(Configuration, WrongRoot_IsRefusedWithItsPlace) {
    Configuration configuration;
    EXPECT_EQ(test::TextOf([&] { configuration.LoadText("\n<other/>", "f.xml"); }),
              "f.xml:2: root element is <other>, not <zelkor>");
}

TEST(Configuration, FileThatIsRefused_LeavesWhatWasLoaded) {
    Configuration configuration;
    configuration.LoadText("<zelkor><monitor a='1'/></zelkor>", "good.xml");
    EXPECT_EQ(test::TextOf([&] { configuration.LoadText("<zelkor>", "bad.xml"); }),
              "bad.xml:1: Premature end of data in tag zelkor line 1");
    EXPECT_THROW(configuration.LoadText("<x/>", "bad.xml"), qstd::Exception);
    EXPECT_THROW(configuration.Load("/nowhere/bad.xml"), qstd::Exception);
    EXPECT_EQ(configuration.GetFileName(), "good.xml");
    EXPECT_EQ(configuration.FindSections("monitor").size(), 1U);
}

TEST(Configuration, Load_ReadsAFile) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("f.xml"), "<zelkor>\n<monitor a='1'/></zelkor>");
    Configuration configuration;
    configuration.Load(folder.Path("f.xml"));
    EXPECT_EQ(configuration.GetFileName(), folder.Path("f.xml"));
    EXPECT_EQ(configuration.FindSections("monitor").at(0)->GetLine(), 2);
}

TEST(Configuration, ResolvePath_IsRelativeToTheFile) {
    Configuration configuration;
    configuration.LoadText("<zelkor/>", "/etc/zelkor/f.xml");
    EXPECT_EQ(configuration.ResolvePath("chassis.xml"), "/etc/zelkor/chassis.xml");
    EXPECT_EQ(configuration.ResolvePath("/a/b.xml"), "/a/b.xml");
    configuration.LoadText("<zelkor/>", "f.xml");
    EXPECT_EQ(configuration.ResolvePath("chassis.xml"), "chassis.xml");
}

TEST(Serializable, ByDefault_HasNothingToGive) {
    struct Plain : qcfg::ISerializable {
        bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>&) override { return true; }
    };
    Plain plain;
    std::vector<std::shared_ptr<qcfg::Element>> elements;
    plain.Serialize(elements);
    EXPECT_TRUE(elements.empty());
    EXPECT_EQ(plain.GetClassName(), "");
}

}  // namespace
