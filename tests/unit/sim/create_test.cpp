#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bmc/sim/builtin_chassis.h"
#include "bmc/sim/sim_backend.h"
#include "qcfg/document.h"
#include "sim_fixture.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

constexpr const char* c_small = R"(<chassis><board uri="io/7" type="io"/></chassis>)";

class CreateTest : public testing::Test {
protected:
    std::unique_ptr<bmc::Backend> Create(const std::string& section) {
        return bmc::sim::Create(*qcfg::ReadXmlText("\n\n" + section, "z.xml"), m_folder.Path("z.xml"));
    }
    std::string CreateError(const std::string& section) {
        return test::ErrorOf([&] { Create(section); });
    }
    std::string CheckError(const std::string& section) {
        return test::ErrorOf(
            [&] { bmc::sim::Check(*qcfg::ReadXmlText("\n\n" + section, "z.xml"), m_folder.Path("z.xml")); });
    }
    std::string At(int line) const { return m_folder.Path("z.xml") + ":" + std::to_string(line) + ": "; }

    test::TempFolder m_folder;
};

TEST_F(CreateTest, WithoutChassis_IsTheBuiltInOne) {
    const auto backend = Create("<boards backend='sim'/>");
    EXPECT_EQ(backend->GetAllLocalBoardUris().size(), 3U);
    ASSERT_NE(backend->GetBoard(bmc::c_localIcbUri), nullptr);
    EXPECT_EQ(backend->GetBoard(bmc::c_localIcbUri)->GetType(), bmc::BoardType_e::icb);
    EXPECT_EQ(test::ReadFile(std::string(ZELKOR_EXAMPLES) + "/chassis/small.xml"), bmc::sim::c_builtinChassis);
}

TEST_F(CreateTest, RelativePaths_AreRelativeToTheConfiguration) {
    test::WriteFile(m_folder.Path("c.xml"), c_small);
    auto backend = Create("<boards backend='sim' chassis='c.xml' control='s'/>");
    EXPECT_EQ(backend->GetAllLocalBoardUris().at(0).ToString(), "io/7");
    EXPECT_TRUE(test::Exists(m_folder.Path("s")));
    backend.reset();
    EXPECT_FALSE(test::Exists(m_folder.Path("s")));
}

TEST_F(CreateTest, AbsolutePaths_AreTakenAsTheyAre) {
    test::WriteFile(m_folder.Path("c.xml"), c_small);
    const auto section = qcfg::ReadXmlText("<boards chassis='" + m_folder.Path("c.xml") + "'/>", "z.xml");
    EXPECT_EQ(bmc::sim::Create(*section, "/etc/z.xml")->GetAllLocalBoardUris().size(), 1U);
}

TEST_F(CreateTest, WhatIsWrong_IsRefusedWithItsPlace) {
    test::WriteFile(m_folder.Path("bad.xml"), "<chassis>\n<board/></chassis>");
    const std::string longPath = m_folder.Path(std::string(200, 'x'));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<boards backend='sim' chasis='c.xml'/>",
         At(3) + "unknown attribute \"chasis\" of <boards>, did you mean \"chassis\"?"},
        {"<boards backend='sim'><board/></boards>", At(3) + "unknown element <board> in <boards>"},
        {"<boards chassis='none.xml'/>",
         At(3) + "chassis description " + m_folder.Path("none.xml") + ": cannot read: No such file or directory"},
        {"<boards chassis='bad.xml'/>", m_folder.Path("bad.xml") + ":2: <board> needs the attribute \"uri\""},
        {"<boards control='" + longPath + "'/>", At(3) + "control socket " + longPath + ": the path has " +
                                                     std::to_string(longPath.size()) + " bytes, the limit is 107"},
    };
    for (const auto& [section, text] : cases) {
        EXPECT_EQ(CreateError(section), text);
        EXPECT_EQ(CheckError(section), text);
    }
    EXPECT_EQ(CreateError("<boards chassis=''/>").rfind(At(3) + "chassis description ", 0), 0U) << "a folder";
    EXPECT_EQ(CreateError("<boards control='no/s'/>"),
              At(3) + "control socket " + m_folder.Path("no/s") + ": No such file or directory");
}

TEST_F(CreateTest, WithoutControl_LeavesTheSocketToTheServiceThatHasIt) {
    const auto section = qcfg::ReadXmlText("<boards control='s'/>", "z.xml");
    const auto service = bmc::sim::Create(*section, m_folder.Path("z.xml"));
    const auto beside = bmc::sim::CreateWithoutControl(*section, m_folder.Path("z.xml"));
    EXPECT_EQ(beside->GetAllLocalBoardUris().size(), 3U);
    EXPECT_TRUE(test::Exists(m_folder.Path("s")));
    EXPECT_THAT(test::ErrorOf([&] { bmc::sim::Create(*section, m_folder.Path("z.xml")); }),
                testing::HasSubstr("in use by another process"));
}

TEST_F(CreateTest, WithoutControl_MakesNoSocketAndRefusesWhatIsWrongWithTheChassis) {
    const auto section = qcfg::ReadXmlText("<boards control='none/s'/>", "z.xml");
    EXPECT_NE(bmc::sim::CreateWithoutControl(*section, m_folder.Path("z.xml")), nullptr);
    const auto bad = qcfg::ReadXmlText("\n<boards chassis='none.xml'/>", "z.xml");
    EXPECT_EQ(test::ErrorOf([&] { bmc::sim::CreateWithoutControl(*bad, m_folder.Path("z.xml")); }),
              At(2) + "chassis description " + m_folder.Path("none.xml") + ": cannot read: No such file or directory");
}

TEST_F(CreateTest, Check_StartsNothing) {
    EXPECT_EQ(CheckError("<boards control='s'/>"), "");
    EXPECT_FALSE(test::Exists(m_folder.Path("s")));
}

}  // namespace
