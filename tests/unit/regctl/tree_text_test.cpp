#include "tools/regctl/tree_text.h"

#include <gtest/gtest.h>

#include "tests/unit/regctl/fake_registry.h"

namespace {

std::vector<regctl::TreeItem> ItemsOf(FakeRegistry& registry, const std::string& path) {
    std::vector<regctl::TreeItem> items;
    registry.Subtree(path, [&](const regctl::TreeItem& item) { items.push_back(item); });
    return items;
}

std::string Terminal(FakeRegistry& registry, const std::string& path, bool hasColour = false) {
    return regctl::TerminalTree(ItemsOf(registry, path), hasColour);
}

std::string Plain(FakeRegistry& registry, const std::string& path) {
    std::string text;
    for (const auto& item : ItemsOf(registry, path)) {
        text += regctl::PlainTreeLine(item, path.empty());
    }
    return text;
}

void AddSensor(FakeRegistry& registry, const std::string& path, const std::string& name, double value) {
    registry.Add(path)
        .Add(path + "/value", value)
        .Add(path + "/hnc", 70.0)
        .Add(path + "/hc", 80.0)
        .AddFailing(path + "/hnr", qreg::ErrorCode_e::no_value, "no value")
        .Add(path + "/lnc", 0.0)
        .Add(path + "/name", name)
        .Add(path + "/units",
             "\xC2\xB0"
             "C");
}

class TreeText : public testing::Test {
protected:
    TreeText() {
        m_registry.Add("").Add("boards").Add("boards/IO1").Add("boards/IO1/info").Add("boards/IO1/info/device", "io/1");
        m_registry.Add("boards/IO1/info/type", "io").Add("boards/IO1/sensors");
        AddSensor(m_registry, "boards/IO1/sensors/ID_2", "Inlet", 40.25);
        AddSensor(m_registry, "boards/IO1/sensors/ID_16", "Outlet air", 81);
        m_registry.Add("fans", 4007.0, 6);
    }
    FakeRegistry m_registry;
};

TEST_F(TreeText, Pipe_EveryNodeHasItsLine) {
    EXPECT_EQ(Plain(m_registry, "boards/IO1/sensors/ID_2"),
              "ID_2\n"
              "  value = 40.25\n"
              "  hnc = 70\n"
              "  hc = 80\n"
              "  hnr (no value)\n"
              "  lnc = 0\n"
              "  name = Inlet\n"
              "  units = \xC2\xB0"
              "C\n");
    EXPECT_EQ(Plain(m_registry, "fans"), "fans = 4007\n");
}

TEST_F(TreeText, Pipe_FromTheRoot_IsNotIndented) {
    EXPECT_EQ(Plain(m_registry, "").substr(0, 57),
              "boards\n"
              "  IO1\n"
              "    info\n"
              "      device = io/1\n"
              "      type = io");
}

TEST_F(TreeText, Terminal_SensorIsOneLineWithUnitsAndCrossing) {
    EXPECT_EQ(Terminal(m_registry, ""),
              "boards\n"
              "  IO1\n"
              "    info\n"
              "      device  io/1\n"
              "      type    io\n"
              "    sensors\n"
              "      ID_2   Inlet       40.25 \xC2\xB0"
              "C\n"
              "      ID_16  Outlet air  81 \xC2\xB0"
              "C     above hc 80\n"
              "fans  4007\n");
}

TEST_F(TreeText, Terminal_SensorAskedFor_ShowsItsValuesWithUnits) {
    EXPECT_EQ(Terminal(m_registry, "boards/IO1/sensors/ID_16"),
              "ID_16\n"
              "  value  81 \xC2\xB0"
              "C  above hc 80\n"
              "  hnc    70 \xC2\xB0"
              "C\n"
              "  hc     80 \xC2\xB0"
              "C\n"
              "  hnr    (no value)\n"
              "  lnc    0 \xC2\xB0"
              "C\n"
              "  name   Outlet air\n"
              "  units  \xC2\xB0"
              "C\n");
    EXPECT_EQ(Terminal(m_registry, "fans"), "fans  4007\n");
    EXPECT_EQ(Terminal(m_registry, "boards/IO1/info/type"), "type  io\n");
}

TEST_F(TreeText, Terminal_ColourOnlyWhereAThresholdIsCrossed) {
    const std::string text = Terminal(m_registry, "boards/IO1/sensors", true);
    EXPECT_NE(text.find("\x1b[31mabove hc 80\x1b[0m\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\x1b'), 2);
    FakeRegistry registry;
    registry.Add("s");
    AddSensor(registry, "s/a", "A", -1);
    EXPECT_EQ(Terminal(registry, "s", true),
              "s\n  a  A  -1 \xC2\xB0"
              "C  \x1b[33mbelow lnc 0\x1b[0m\n");
}

TEST_F(TreeText, Terminal_ReadingThatCannotBeHad) {
    FakeRegistry registry;
    registry.Add("s").Add("s/a").AddFailing("s/a/value", qreg::ErrorCode_e::failed, "bus").Add("s/a/units", "V");
    EXPECT_EQ(Terminal(registry, "s"), "s\n  a    (bus)\n");
}

TEST_F(TreeText, ControlCharactersNeverReachTheTerminal) {
    FakeRegistry registry;
    registry.Add("s").Add("s/a", "\x1b]0;x\a");
    EXPECT_EQ(Terminal(registry, "s"), "s\n  a  ?]0;x?\n");
}

}  // namespace
