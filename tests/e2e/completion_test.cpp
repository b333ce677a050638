// The bash completions of the daemon and of zelkor-chassisctl, in a real bash.

#include <regex>
#include <set>

#include "daemon_fixture.h"
#include "tests/support/bash_completion.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

class CompletionTest : public test::DaemonTest {
protected:
    /// What is offered at the end of @p line, whose first word is the program's name.
    static std::vector<std::string> Complete(const std::string& line) {
        const std::string name = line.substr(0, line.find(' '));
        std::string function = "_" + name;
        std::replace(function.begin(), function.end(), '-', '_');
        return test::BashCompletions(std::string(ZELKOR_COMPLETIONS) + "/" + name, function, Program(name), line);
    }

    /// What @p pattern's first group finds in what --help prints.
    static std::set<std::string> InHelp(const std::string& name, const std::string& pattern) {
        const std::string help = test::RunProgram({Program(name), "--help"}).output;
        const std::regex expression(pattern);
        std::set<std::string> found;
        for (std::sregex_iterator each(help.begin(), help.end(), expression), end; each != end; ++each) {
            found.insert((*each)[1]);
        }
        return found;
    }
};

TEST_F(CompletionTest, Daemon_OffersEveryOptionThatHelpTells) {
    const auto options = InHelp("zelkor-platformd", "(--[a-z][a-z-]+)");
    ASSERT_THAT(options, Contains("--config"));
    EXPECT_THAT(Complete("zelkor-platformd --"), UnorderedElementsAreArray(options));
    EXPECT_THAT(Complete("zelkor-platformd "), UnorderedElementsAreArray(options));
}

TEST_F(CompletionTest, Daemon_OffersWhatAnOptionTakes) {
    test::WriteFile(m_folder.Path("lab.xml"), "");
    std::filesystem::create_directory(m_folder.Path("logs"));
    for (const std::string option : {"--config ", "-c ", "--config=", "--pid-file "}) {
        EXPECT_THAT(Complete("zelkor-platformd " + option + m_folder.Path("la")), ElementsAre(m_folder.Path("lab.xml")))
            << option;
    }
    EXPECT_THAT(Complete("zelkor-platformd --log-dir " + m_folder.Path("l")), ElementsAre(m_folder.Path("logs")));
    EXPECT_THAT(Complete("zelkor-platformd --trace-level "), ElementsAre("0", "1", "2", "3", "4"));
    EXPECT_THAT(Complete("zelkor-platformd --trace-level="), ElementsAre("0", "1", "2", "3", "4"));
    EXPECT_THAT(Complete("zelkor-platformd --port "), IsEmpty());
}

TEST_F(CompletionTest, Daemon_OffersWhatGoesTogether) {
    EXPECT_THAT(Complete("zelkor-platformd --daemon --f"), ElementsAre("--fans-safe"));
    EXPECT_THAT(Complete("zelkor-platformd --check-config --l"), IsEmpty());
    EXPECT_THAT(Complete("zelkor-platformd --check-config --c"), Contains("--config"));
    EXPECT_THAT(Complete("zelkor-platformd --help "), IsEmpty());
}

TEST_F(CompletionTest, ChassisControl_OffersEveryCommandAndOptionThatHelpTells) {
    const auto commands = InHelp("zelkor-chassisctl", "(?:^|\n)  ([a-z][a-z-]+)");
    ASSERT_THAT(commands, Contains("shutdown-count"));
    EXPECT_THAT(Complete("zelkor-chassisctl "), UnorderedElementsAreArray(commands));

    std::set<std::string> options;
    for (const char* const words : {"", "list ", "journal ", "import "}) {
        for (const std::string& option : Complete(std::string("zelkor-chassisctl ") + words + "--")) {
            options.insert(option);
        }
    }
    EXPECT_EQ(options, InHelp("zelkor-chassisctl", "(--[a-z][a-z-]+)"));
}

TEST_F(CompletionTest, ChassisControl_BoardsAndSensorsComeFromTheDaemon) {
    Configure("");
    StartAndAwait();
    const std::string words = "zelkor-chassisctl --socket " + m_folder.Path("chassis.sock") + " ";
    EXPECT_THAT(Complete(words + "set "), ElementsAre("icb/0", "os/0", "slot/2"));
    EXPECT_THAT(Complete(words + "heal s"), ElementsAre("slot/2"));
    EXPECT_THAT(Complete(words + "set icb/0 "), ElementsAre("3", "12"));
    EXPECT_THAT(Complete(words + "limit icb/0 3 u"), ElementsAre("unc", "uc", "unr"));
    EXPECT_THAT(Complete(words + "clock icb/0 "), IsEmpty());
    EXPECT_THAT(Complete(words + "fpga "), ElementsAre("read", "write", "fail", "heal"));
    Stop();
}

TEST_F(CompletionTest, ChassisControl_WithoutDaemon_IsSilent) {
    EXPECT_THAT(Complete("zelkor-chassisctl --socket " + m_folder.Path("none") + " set "), IsEmpty());
}

}  // namespace
