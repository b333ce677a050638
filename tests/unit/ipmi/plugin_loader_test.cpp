#include "bmc/ipmi/plugin_loader.h"

#include <gmock/gmock.h>

#include <string>

#include "build_info.h"
#include "settings_fixture.h"
#include "tests/support/log_capture.h"

namespace {

using bmc::ipmi::LoadBackend;
using bmc::ipmi::Settings;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string Plugin(const std::string& name) {
    return std::string(ZELKOR_TEST_PLUGINS) + "/" + name + ".so";
}

std::string LoadError(const std::string& path) {
    return test::TextOf([&] { LoadBackend(Settings{}, path); });
}

TEST(PluginLoader, Backend_IsMadeFromTheSettingsAndLogsToTheHost) {
    const test::LogCapture log;
    Settings settings;
    settings.boards.resize(1);
    settings.boards[0].uri = bmc::Uri("io", "7");
    const auto backend = LoadBackend(settings, Plugin("fake_plugin"));
    EXPECT_THAT(backend->GetAllLocalBoardUris(), ElementsAre(bmc::Uri("io", "7")));
    EXPECT_THAT(log.Messages(), ElementsAre("I: created", "W: slow", "E: silent", "C: hot"));
}

TEST(PluginLoader, WhatTheBackendRaises_ReachesTheCaller) {
    Settings settings;
    settings.cacheFolder = "raise";
    EXPECT_EQ(test::TextOf([&] { LoadBackend(settings, Plugin("fake_plugin")); }), "the cache is full");
}

TEST(PluginLoader, SharedObjectThatIsNotThere_IsNotInstalled) {
    EXPECT_EQ(LoadError("/none/plugin.so"),
              "boards over IPMI need /none/plugin.so, which is not there: the package with it is not installed");
}

TEST(PluginLoader, FileThatIsNoSharedObject_IsRefused) {
    const test::TempFolder folder;
    test::WriteFile(folder.Path("p.so"), "text");
    EXPECT_THAT(LoadError(folder.Path("p.so")), StartsWith("cannot load " + folder.Path("p.so") + ": "));
}

TEST(PluginLoader, SharedObjectWithoutTheEntry_IsRefused) {
    EXPECT_THAT(LoadError(Plugin("fake_plugin_without_entry")),
                testing::AllOf(StartsWith("cannot use " + Plugin("fake_plugin_without_entry") + ": "),
                               HasSubstr("ZelkorBmcIpmi")));
}

TEST(PluginLoader, SharedObjectOfAnotherBuild_IsRefused) {
    EXPECT_EQ(LoadError(Plugin("fake_plugin_of_another_build")),
              "cannot use " + Plugin("fake_plugin_of_another_build") +
                  ": it is of the build 1.0, this program of the build " + c_buildId);
    EXPECT_EQ(LoadError(Plugin("fake_plugin_of_no_build")), "cannot use " + Plugin("fake_plugin_of_no_build") +
                                                                ": it is of the build unknown, this program of the " +
                                                                "build " + c_buildId);
}

TEST(PluginLoader, Path_IsBesideTheProgramsFolder) {
    const std::string expected = "/lib/zelkor/zelkor-bmc-ipmi.so";
    const std::string path = bmc::ipmi::PluginPath();
    EXPECT_EQ(path, std::filesystem::canonical("/proc/self/exe").parent_path().parent_path().string() + expected);
}

using PluginSection = test::SettingsTest;

TEST_F(PluginSection, SettingsThatAreWrong_AreRefusedBeforeAnythingIsLoaded) {
    const auto section = qcfg::ReadXmlText("\n<boards backend='ipmi' retries='1'/>", "z.xml");
    const std::string text = At(2) + "<boards backend=\"ipmi\"> has no <board>; at least one must be there";
    EXPECT_EQ(test::TextOf([&] { bmc::ipmi::Create(*section, ConfigFile()); }), text);
    EXPECT_EQ(test::TextOf([&] { bmc::ipmi::Check(*section, ConfigFile()); }), text);
}

}  // namespace
