#include "qcfg/document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/cpu_time.h"
#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using qcfg::ReadXmlFile;
using qcfg::ReadXmlText;
using testing::ElementsAre;

/// The error of reading @p text as "f.xml"; "(no exception)" when there is none.
std::string ErrorOf(const std::string& text) {
    return test::TextOf([&] { ReadXmlText(text, "f.xml"); });
}

std::string Repeat(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

TEST(Document, KeepsNamesTextsAttributesAndOrder) {
    const auto root = ReadXmlText("<zelkor a='1' b='2'>x<m>text</m>y<m/><n> blank </n></zelkor>", "f.xml");
    EXPECT_EQ(root->GetName(), "zelkor");
    EXPECT_EQ(root->GetValue(), "xy");
    ASSERT_EQ(root->GetAttributes().size(), 2U);
    EXPECT_EQ(root->GetAttributes()[0]->GetName(), "a");
    EXPECT_EQ(root->GetAttributes()[1]->GetValue(), "2");
    ASSERT_EQ(root->GetChildren().size(), 3U);
    EXPECT_EQ(root->GetChildren()[0]->GetValue(), "text");
    EXPECT_EQ(root->FindChild("m"), root->GetChildren()[0]);
    EXPECT_EQ(root->FindChild("n")->GetValue(), " blank ");
    EXPECT_EQ(root->FindChild("o"), nullptr);
}

TEST(Document, LineIsThatOfTheStartTagsBegin) {
    const auto root =
        ReadXmlText("<?xml version='1.0'?>\n<a>\n <b/>\n <c\n  x='>'\n  y='1\n2'>\n</c><d/>\n</a>", "f.xml");
    EXPECT_EQ(root->GetLine(), 2);
    std::vector<int> lines;
    for (const auto& child : root->GetChildren()) {
        lines.push_back(child->GetLine());
    }
    EXPECT_THAT(lines, ElementsAre(3, 4, 8));
}

TEST(Document, LineIsExactBeyond65535) {
    const auto root = ReadXmlText("<a>" + Repeat("\n", 99999) + "<b/>\n<b>1</b>\n<b><c/></b>\n<b\n/></a>", "f.xml");
    std::vector<int> lines;
    for (const auto& child : root->GetChildren()) {
        lines.push_back(child->GetLine());
    }
    EXPECT_THAT(lines, ElementsAre(100000, 100001, 100002, 100003));
    EXPECT_EQ(root->GetChildren()[2]->GetChildren()[0]->GetLine(), 100002);
}

TEST(Document, ErrorLineIsExactBeyond65535) {
    EXPECT_EQ(ErrorOf("<a>" + Repeat("\n", 99999) + "</b>"),
              "f.xml:100000: Opening and ending tag mismatch: a line 1 and b");
}

TEST(Document, CommentsAndInstructionsAreNoText) {
    EXPECT_EQ(ReadXmlText("<a>1<!-- 2 --><?x 3?>4</a>", "f.xml")->GetValue(), "14");
}

TEST(Document, CdataIsText) {
    EXPECT_EQ(ReadXmlText("<a>1<![CDATA[<&2>]]>3</a>", "f.xml")->GetValue(), "1<&2>3");
}

TEST(Document, EntitiesOfTheDocument_StandForTheirText) {
    const auto root = ReadXmlText(
        "<!DOCTYPE a [<!ENTITY e 'text'><!ENTITY t '<c/>'>]>\n<a b='-&e;-'>&lt;&e;&amp;&#65;\n&t;</a>", "f.xml");
    EXPECT_EQ(root->GetValue(), "<text&A\n");
    EXPECT_EQ(root->GetAttributes().at(0)->GetValue(), "-text-");
    ASSERT_EQ(root->GetChildren().size(), 1U);
    EXPECT_EQ(root->GetChildren()[0]->GetName(), "c");
    EXPECT_EQ(root->GetChildren()[0]->GetLine(), 3) << "that of the reference";
}

TEST(Document, ByteOrderMarkIsNoText) {
    EXPECT_EQ(ReadXmlText("\xEF\xBB\xBF<a>x</a>", "f.xml")->GetValue(), "x");
    EXPECT_EQ(ReadXmlText(std::string("\xFF\xFE<\0a\0/\0>\0", 10), "f.xml")->GetName(), "a");
}

TEST(Document, OtherEncodings_AreReadAsUtf8) {
    EXPECT_EQ(ReadXmlText("<?xml version='1.0' encoding='ISO-8859-1'?><a>\xB0</a>", "f.xml")->GetValue(), "\u00b0");
}

TEST(Document, MalformedText_IsRefusedWithFileLineAndTheFirstError) {
    EXPECT_EQ(ErrorOf(""), "f.xml:1: Document is empty");
    EXPECT_EQ(ErrorOf("text"), "f.xml:1: Start tag expected, '<' not found");
    EXPECT_EQ(ErrorOf("<a>\n<b>\n</a>\n</x>"), "f.xml:3: Opening and ending tag mismatch: b line 2 and a");
    EXPECT_EQ(ErrorOf("<a>\n"), "f.xml:2: Premature end of data in tag a line 1");
    EXPECT_EQ(ErrorOf("<a/>\n<b/>"), "f.xml:2: Extra content at the end of the document");
    EXPECT_EQ(ErrorOf("<a>\n\n<b c='1' c='2'/></a>"), "f.xml:3: Attribute c redefined");
    EXPECT_EQ(ErrorOf("<a>&nothing;</a>"), "f.xml:1: Entity 'nothing' not defined");
    EXPECT_EQ(ErrorOf("<a b=c/>"), "f.xml:1: AttValue: \" or ' expected");
    EXPECT_EQ(ErrorOf("<a>\n<x:b/></a>"), "f.xml:2: Namespace prefix x on b is not defined");
}

TEST(Document, InvalidUtf8_IsRefused) {
    EXPECT_THAT(ErrorOf("<a>\n\xC3(</a>"), testing::StartsWith("f.xml:2: Input is not proper UTF-8"));
    EXPECT_THAT(ErrorOf("<a>\n<b c='\xFF'/></a>"), testing::StartsWith("f.xml:2: "));
}

TEST(Document, NullCharacter_IsRefused) {
    EXPECT_THAT(ErrorOf(std::string("<a>\n\0</a>", 9)), testing::StartsWith("f.xml:2: "));
}

TEST(Document, ErrorsAreOneLine) {
    const std::string error = ErrorOf("<a>&\n\x01;</a>");
    EXPECT_THAT(error, testing::StartsWith("f.xml:1: "));
    EXPECT_EQ(error.find('\n'), std::string::npos);
}

TEST(Document, DeepNesting_IsBounded) {
    EXPECT_EQ(ErrorOf(Repeat("<a>", 200) + Repeat("</a>", 200)), "(no exception)");
    EXPECT_THAT(ErrorOf(Repeat("<a>\n", 100000)), testing::StartsWith("f.xml:258: Excessive depth in document: 256"));
}

TEST(Document, ManyElements_AreReadQuickly) {
    const auto begin = test::ThreadCpuTime();
    EXPECT_EQ(ReadXmlText("<a>" + Repeat("<b c='1'>x</b>\n", 100000) + "</a>", "f.xml")->GetChildren().size(), 100000U);
    EXPECT_LT(test::ThreadCpuTime() - begin, std::chrono::seconds(10));
}

std::string Laughs(const std::string& use) {
    std::string text = "<!DOCTYPE a [<!ENTITY e0 'ha'>";
    for (int i = 1; i < 12; ++i) {
        const std::string inner = "&e" + std::to_string(i - 1) + ";";
        text += "<!ENTITY e" + std::to_string(i) + " '" + Repeat(inner, 10) + "'>";
    }
    return text + "]>\n" + use;
}

TEST(Document, EntitiesThatExpandWithoutEnd_AreRefusedQuickly) {
    const auto begin = test::ThreadCpuTime();
    EXPECT_EQ(ErrorOf(Laughs("<a>&e11;</a>")), "f.xml:2: Detected an entity reference loop");
    EXPECT_EQ(ErrorOf(Laughs("<a b='&e11;'/>")), "f.xml:2: Detected an entity reference loop");
    const std::string square =
        "<!DOCTYPE a [<!ENTITY e '" + std::string(100000, 'x') + "'>]>\n<a>" + Repeat("&e;", 100000) + "</a>";
    EXPECT_EQ(ErrorOf(square), "f.xml:2: Detected an entity reference loop");
    EXPECT_EQ(ErrorOf("<!DOCTYPE a [<!ENTITY e '&f;'><!ENTITY f '&e;'>]>\n<a>&e;</a>"),
              "f.xml:2: Detected an entity reference loop");
    EXPECT_LT(test::ThreadCpuTime() - begin, std::chrono::seconds(10));
}

TEST(Document, ExternalEntity_IsRefusedAndNeverOpened) {
    const test::TempFolder folder;
    const std::string secret = folder.Path("secret");
    test::WriteFile(secret, "<secret/>");
    for (const std::string& url : {"file://" + secret, secret, std::string("http://127.0.0.1:9/x"),
                                   std::string("ftp://127.0.0.1:9/x"), folder.Path("not-there")}) {
        EXPECT_EQ(ErrorOf("<!DOCTYPE a [<!ENTITY e SYSTEM '" + url + "'>]>\n<a>\n&e;</a>"),
                  "f.xml:3: external entity is not loaded: " + url);
    }
}

TEST(Document, ExternalEntityInAFile_IsRefusedWithARelativeName) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("secret"), "secret");
    test::WriteFile(folder.Path("f.xml"), "<!DOCTYPE a [<!ENTITY e SYSTEM 'secret'>]>\n<a>&e;</a>");
    EXPECT_EQ(test::TextOf([&] { ReadXmlFile(folder.Path("f.xml")); }),
              folder.Path("f.xml") + ":2: external entity is not loaded: " + folder.Path("secret"));
}

TEST(Document, ExternalSubset_IsNotLoaded_AndWhatItWouldDeclareIsNotDropped) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("x.dtd"), "<!ENTITY e 'text'>");
    const std::string type = "<!DOCTYPE a SYSTEM '" + folder.Path("x.dtd") + "'>\n";
    EXPECT_EQ(ReadXmlText(type + "<a>x</a>", "f.xml")->GetValue(), "x");
    EXPECT_EQ(ErrorOf(type + "<a>\n<b>x&e;y</b></a>"), "f.xml:3: Entity 'e' not defined");
    EXPECT_EQ(ErrorOf(type + "<a>\n<b c='x&e;y'/></a>"), "f.xml:3: Entity 'e' not defined");
}

TEST(Document, ExternalParameterEntity_IsRefusedAndNeverOpened) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("x.dtd"), "<!ENTITY e 'text'>");
    const std::string type = "<!DOCTYPE a [<!ENTITY % p SYSTEM '" + folder.Path("x.dtd") + "'>\n%p;]>\n";
    EXPECT_EQ(ErrorOf(type + "<a>&e;</a>"), "f.xml:2: external entity is not loaded: " + folder.Path("x.dtd"));
}

TEST(Document, Inclusions_AreNotFollowed) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("x"), "<secret/>");
    const auto root = ReadXmlText(
        "<a xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='" + folder.Path("x") + "'/></a>", "f.xml");
    ASSERT_EQ(root->GetChildren().size(), 1U);
    EXPECT_EQ(root->GetChildren()[0]->GetName(), "include");
}

TEST(Document, FileThatCannotBeRead_IsNamedWithTheReason) {
    const test::TempFolder folder;
    const auto errorOf = [](const std::string& path) { return test::TextOf([&] { ReadXmlFile(path); }); };
    EXPECT_EQ(errorOf(folder.Path("none")), folder.Path("none") + ": cannot read: No such file or directory");
    EXPECT_EQ(errorOf(folder.Path()), folder.Path() + ": cannot read: Is a directory");
    EXPECT_EQ(errorOf(""), ": cannot read: No such file or directory");
    test::WriteFile(folder.Path("empty"), "");
    EXPECT_EQ(errorOf(folder.Path("empty")), folder.Path("empty") + ":1: Document is empty");
    EXPECT_EQ(errorOf(folder.Path("empty/x")), folder.Path("empty/x") + ": cannot read: Not a directory");
}

TEST(Document, FileWithoutEnd_IsRefusedAtABound) {
    EXPECT_EQ(test::TextOf([] { ReadXmlFile("/dev/zero"); }), "/dev/zero: larger than 67108864 bytes");
}

TEST(Document, File_IsReadWhole) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("f.xml"), "<a>" + std::string(100000, 'x') + "</a>");
    EXPECT_EQ(ReadXmlFile(folder.Path("f.xml"))->GetValue().size(), 100000U);
}

TEST(Document, ManyThreads_ReadWithoutMixingTheirErrors) {
    std::vector<std::thread> threads;
    for (int i = 1; i <= 4; ++i) {
        threads.emplace_back([i] {
            const std::string good = Repeat("\n", i - 1) + "<a>" + std::to_string(i) + "</a>";
            const std::string bad = "<!DOCTYPE a [<!ENTITY e SYSTEM 'e" + std::to_string(i) + "'>]><a>&e;</a>";
            for (int round = 0; round < 50; ++round) {
                EXPECT_EQ(ReadXmlText(good, "good")->GetLine(), i);
                EXPECT_EQ(ErrorOf(bad), "f.xml:1: external entity is not loaded: e" + std::to_string(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST(AtLine, IsFileLineText) {
    EXPECT_EQ(qcfg::AtLine("f.xml", 12, "text"), "f.xml:12: text");
}

}  // namespace
