#include "qapp/zelkor_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <stdexcept>

#include "bmc/board_pool.h"
#include "qnode/factory.h"
#include "qstd/exception.h"
#include "tests/support/file.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"
#include "tests/support/temp_folder.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Notes the hooks in the order of their calls; a test may put code into each.
class RecordingApplication : public qapp::ZelkorApplication {
public:
    RecordingApplication(bool createsBoards, bool runsOnce) : ZelkorApplication("recorder", createsBoards, runsOnce) {
        AddBoardBackend(
            {{.name = "mock", .doc = "boards of a test"},
             [this](const auto& /*section*/, const auto& /*file*/) { return MakeBoards("(boards)"); },
             {},
             [this](const auto& /*section*/, const auto& /*file*/) { return MakeBoards("(boards for an action)"); }});
    }

    void OnPreInit() override { Note("OnPreInit"); }
    void OnPostInit() override { Note("OnPostInit"); }
    void OnPreConfig() override { Note("OnPreConfig"); }
    void OnPostConfig() override { Note("OnPostConfig"); }
    void OnStartRunning() override { Note("OnStartRunning"); }
    void OnAcceptRequests() override { Note("OnAcceptRequests"); }
    void OnShutdown() override { Note("OnShutdown"); }
    void OnCheckConfig(qcfg::Findings& findings) override {
        Note("OnCheckConfig on " + std::to_string(bmc::BoardPool::Instance().GetAllLocalBoardUris().size()) +
             " boards");
        findings.insert(findings.end(), m_findings.begin(), m_findings.end());
    }
    qapp::ZelkorBoard* CreateBoard(const bmc::Board* board) override {
        Note("CreateBoard " + board->GetShortName());
        return board->GetShortName() == "IO1" ? new qapp::ZelkorBoard(board) : nullptr;
    }
    void AddBoard(qapp::ZelkorBoard* board) override {
        Note("AddBoard " + board->OnGetName());
        ZelkorApplication::AddBoard(board);
    }
    void OnInitLogFileName(std::string& name) const override { name = "own.log"; }
    void OnProgramOptionsAdd(boost::program_options::options_description& description) override {
        description.add_options()("own", boost::program_options::value<int>(), "an option of its own");
    }
    void OnProgramOptionsProcess(const boost::program_options::variables_map& values) override {
        if (values.count("own") != 0 && values["own"].as<int>() == 0) {
            throw qstd::Exception("--own: 0 is too little");
        }
    }

    /// Gives it a registry server that notes its calls, too.
    void AddServer() {
        SetRegistryServer([this](const qreg::ServerSettings& /*settings*/, const auto& /*root*/) {
            Note("(server bound)");
            return std::make_unique<RecordingServer>(*this);
        });
    }

    /// Gives it an action that is noted, and fails when @p error is not empty.
    void AddNotedAction(const std::string& name, const std::string& error = {}) {
        AddAction(name, "do " + name + " and exit", [this, name, error] {
            Note("(" + name + " on " + std::to_string(bmc::BoardPool::Instance().GetAllLocalBoardUris().size()) +
                 " boards)");
            qstd::LogInfo("did " + name);
            if (!error.empty()) {
                throw qstd::Exception(error);
            }
        });
    }

    std::vector<std::string> m_calls;
    qcfg::Findings m_findings;                         ///< of its own proof of a configuration
    std::chrono::steady_clock::time_point m_deadline;  ///< of accesses to boards
    std::map<std::string, std::function<void()>> m_inHook;

private:
    class RecordingServer final : public qreg::Server {
    public:
        explicit RecordingServer(RecordingApplication& application) : m_application(application) {}
        ~RecordingServer() override { m_application.Note("(server gone)"); }
        int GetPort() const override { return 1; }
        int GetTlsPort() const override { return 0; }
        void Serve() override { m_application.Note("(server serves)"); }
        void RenewTls(const qreg::tls::Identity& /*identity*/) override { m_application.Note("(server renews TLS)"); }
        void Refuse() override { m_application.Note("(server refuses)"); }
        void Stop() override { m_application.Note("(server stops)"); }

    private:
        RecordingApplication& m_application;
    };

    std::unique_ptr<bmc::Backend> MakeBoards(const std::string& call) {
        Note(call);
        auto backend = std::make_unique<testing::NiceMock<test::MockBackend>>();
        backend->Add(bmc::Uri("io", "1"), "IO1", bmc::BoardType_e::io);
        backend->Add(bmc::Uri("io", "2"), "IO2", bmc::BoardType_e::io);
        ON_CALL(*backend, LimitAccesses).WillByDefault([this](auto deadline) {
            Note("(accesses limited)");
            m_deadline = deadline;
        });
        return backend;
    }

    void Note(const std::string& call) {
        m_calls.push_back(call);
        if (m_inHook.count(call) != 0) {
            m_inHook[call]();
        }
    }
};

class Application : public testing::Test {
protected:
    ~Application() override {
        qstd::Log::GetInstance().Close();
        bmc::BoardPool::Instance().Open(nullptr);
    }

    void Make(bool createsBoards = false, bool runsOnce = true) {
        m_application = std::make_unique<RecordingApplication>(createsBoards, runsOnce);
    }

    /// Without looking at the standard streams.
    bool RunOpenly(std::vector<std::string> options) {
        options.insert(options.begin(), {"recorder", "--config", m_folder.Path("c.xml")});
        std::vector<char*> words;
        for (std::string& option : options) {
            words.push_back(option.data());
        }
        words.push_back(nullptr);
        return m_application->Run(static_cast<int>(words.size() - 1), words.data());
    }

    bool Run(std::vector<std::string> options = {}, const std::string& config = "<zelkor/>",
             const std::string& logFolder = "log") {
        test::WriteFile(m_folder.Path("c.xml"), config);
        options.insert(options.end(), {"--log-dir", m_folder.Path(logFolder)});
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        const bool result = RunOpenly(options);
        m_output = testing::internal::GetCapturedStdout();
        m_error = testing::internal::GetCapturedStderr();
        return result;
    }

    test::TempFolder m_folder;
    std::unique_ptr<RecordingApplication> m_application;
    std::string m_output;
    std::string m_error;
};

TEST_F(Application, Hooks_ComeInTheirOrder) {
    Make();
    EXPECT_TRUE(Run());
    EXPECT_THAT(m_application->m_calls,
                ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)", "OnPostInit", "OnStartRunning",
                            "OnAcceptRequests", "(accesses limited)", "OnShutdown"));
}

TEST_F(Application, Boards_AreOfferedToAnApplicationThatWantsThem) {
    Make(true);
    EXPECT_TRUE(Run());
    EXPECT_THAT(m_application->m_calls,
                ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)", "CreateBoard IO1", "AddBoard IO1",
                            "CreateBoard IO2", "OnPostInit", "OnStartRunning", "OnAcceptRequests", "(accesses limited)",
                            "OnShutdown"));
}

TEST_F(Application, BadCommandLine_CallsNoHookAndSaysWhy) {
    Make();
    EXPECT_FALSE(Run({"--nonsense"}));
    EXPECT_THAT(m_application->m_calls, IsEmpty());
    EXPECT_EQ(m_error, "recorder: unrecognised option '--nonsense' (see --help)\n");
}

TEST_F(Application, AddedOption_IsOfferedAndChecked) {
    Make();
    EXPECT_FALSE(Run({"--own", "0"}));
    EXPECT_EQ(m_error, "recorder: --own: 0 is too little (see --help)\n");
    EXPECT_TRUE(Run({"--own", "1"}));
    EXPECT_TRUE(Run({"--help"}));
    EXPECT_THAT(m_output, HasSubstr("an option of its own"));
}

TEST_F(Application, BadConfiguration_StartsNothing) {
    Make();
    EXPECT_FALSE(Run({}, "<zelkor>\n<"));
    EXPECT_THAT(m_application->m_calls, ElementsAre("OnPreInit", "OnPreConfig"));
    EXPECT_THAT(m_error, HasSubstr("recorder: " + m_folder.Path("c.xml") + ":2: "));
}

TEST_F(Application, BoardsThatCannotBeReached_StartNothing) {
    Make();
    m_application->m_inHook["(boards)"] = [] { throw qstd::Exception("no bus"); };
    EXPECT_FALSE(Run());
    EXPECT_EQ(m_error, "recorder: no bus\n");
    EXPECT_THAT(m_application->m_calls, ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)"));
}

TEST_F(Application, StopRequestDuringAnyPhaseOfTheStart_EndsInOrder) {
    for (const char* phase :
         {"OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)", "OnPostInit", "OnStartRunning", "OnAcceptRequests"}) {
        Make(false, false);
        m_application->m_inHook[phase] = [] { ::kill(::getpid(), SIGTERM); };
        EXPECT_TRUE(Run()) << phase;
        const auto& calls = m_application->m_calls;
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "OnPostInit"),
                  std::count(calls.begin(), calls.end(), "OnShutdown"))
            << phase;
        m_application.reset();
    }
}

TEST_F(Application, ExceptionOutOfTheStart_IsLoggedAndTheStopGoesOn) {
    Make();
    m_application->m_inHook["OnPostInit"] = [] { throw std::runtime_error("no thread"); };
    const test::LogCapture log;
    EXPECT_FALSE(Run());
    EXPECT_THAT(log.Messages(), ElementsAre("E: Problem at start - no thread"));
    EXPECT_EQ(m_application->m_calls.back(), "OnShutdown");
}

using ApplicationDeathTest = Application;

TEST_F(ApplicationDeathTest, ExceptionOutOfTheStartInTheBackground_IsToldToTheCaller) {
    Make();
    m_application->m_inHook["OnPostInit"] = [] { throw std::runtime_error("no thread"); };
    test::WriteFile(m_folder.Path("c.xml"), "<zelkor/>");
    EXPECT_EXIT(std::_Exit(RunOpenly({"--log-dir", m_folder.Path("log"), "--daemon"}) ? 0 : 2),
                testing::ExitedWithCode(1), "^recorder: Problem at start - no thread\n$");
    EXPECT_THAT(test::ReadFile(m_folder.Path("log/own.log")), HasSubstr("ERROR    Problem at start - no thread\n"));
}

TEST_F(Application, ExceptionOutOfTheStop_IsLogged) {
    Make();
    m_application->m_inHook["OnShutdown"] = [] { throw std::bad_weak_ptr(); };
    const test::LogCapture log;
    EXPECT_FALSE(Run());
    EXPECT_THAT(log.Messages(), ElementsAre("E: Problem at stop - bad_weak_ptr"));
    m_application->m_inHook["OnShutdown"] = [] { throw 42; };
    EXPECT_FALSE(Run());
    EXPECT_THAT(log.Messages(), Contains("E: Problem at stop - Unknown Exception"));
}

TEST_F(Application, LogFile_HasTheNameThatTheApplicationGives) {
    Make();
    m_application->m_inHook["OnPostInit"] = [] { qstd::LogInfo("here"); };
    EXPECT_TRUE(Run());
    EXPECT_EQ(m_application->LogFileDir(), m_folder.Path("log"));
    EXPECT_THAT(test::ReadFile(m_folder.Path("log/own.log")), HasSubstr("INFO     here\n"));
}

TEST_F(Application, LogFolder_HasNoSlashAtItsEnd) {
    Make();
    EXPECT_TRUE(Run({}, "<zelkor/>", "log//"));
    EXPECT_EQ(m_application->LogFileDir(), m_folder.Path("log"));
}

TEST_F(Application, Action_IsDoneOnTheBoardsInPlaceOfServing) {
    Make(true, false);
    m_application->AddServer();
    m_application->AddNotedAction("rest");
    EXPECT_TRUE(Run({"--rest", "--pid-file", m_folder.Path("pid")}));
    EXPECT_THAT(m_application->m_calls, ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig",
                                                    "(boards for an action)", "(rest on 2 boards)"));
    EXPECT_FALSE(test::Exists(m_folder.Path("pid")));
    EXPECT_THAT(m_error, HasSubstr("INFO     did rest\n"));
    EXPECT_THAT(test::ReadFile(m_folder.Path("log/own.log")), HasSubstr("INFO     did rest\n"));
}

TEST_F(Application, ActionThatIsNotAskedFor_IsOfferedAndNotDone) {
    Make();
    m_application->AddNotedAction("rest");
    EXPECT_TRUE(Run());
    EXPECT_EQ(m_application->m_calls.back(), "OnShutdown");
    EXPECT_TRUE(Run({"--help"}));
    EXPECT_THAT(m_output, HasSubstr("--rest"));
    EXPECT_THAT(m_output, HasSubstr("do rest and exit"));
}

TEST_F(Application, ActionThatFails_IsAnErrorInTheLogAndOnStandardErrorOnce) {
    Make();
    m_application->AddNotedAction("rest", "it cannot rest");
    EXPECT_FALSE(Run({"--rest"}));
    EXPECT_THAT(m_error, testing::EndsWith("ERROR    it cannot rest\n"));
    EXPECT_EQ(std::count(m_error.begin(), m_error.end(), '\n'), 2) << m_error;
    EXPECT_THAT(test::ReadFile(m_folder.Path("log/own.log")), testing::EndsWith("ERROR    it cannot rest\n"));
}

TEST_F(Application, ActionThatThrowsAnythingElse_IsAnErrorThatNamesIt) {
    Make();
    m_application->AddAction("rest", "", [] { throw 42; });
    EXPECT_FALSE(Run({"--rest"}));
    EXPECT_THAT(m_error, testing::EndsWith("ERROR    Problem at --rest - Unknown Exception\n"));
}

TEST_F(Application, ActionAndSomethingElse_ExcludeEachOther) {
    Make();
    m_application->AddNotedAction("rest");
    m_application->AddNotedAction("sleep");
    const std::vector<std::pair<std::string, std::string>> cases{
        {"--sleep", "--sleep and --rest"},
        {"--daemon", "--rest and --daemon"},
        {"--check-config", "--rest and --check-config"},
        {"--print-schema", "--rest and --print-schema"},
    };
    for (const auto& [other, names] : cases) {
        EXPECT_FALSE(Run({"--rest", other}));
        EXPECT_EQ(m_error, "recorder: " + names + " exclude each other (see --help)\n");
        EXPECT_EQ(m_output, "");
    }
    EXPECT_THAT(m_application->m_calls, IsEmpty());
}

TEST_F(Application, ActionWithoutAConfigurationOrBoards_IsRefusedLikeTheService) {
    Make();
    m_application->AddNotedAction("rest");
    EXPECT_FALSE(Run({"--rest"}, "<zelkor>\n<"));
    EXPECT_THAT(m_error, HasSubstr("recorder: " + m_folder.Path("c.xml") + ":2: "));
    m_application->m_inHook["(boards for an action)"] = [] { throw qstd::Exception("no bus"); };
    EXPECT_FALSE(Run({"--rest"}));
    EXPECT_EQ(m_error, "recorder: no bus\n");
    EXPECT_THAT(m_application->m_calls, testing::Not(Contains(HasSubstr("(rest"))));
}

TEST_F(Application, CheckConfig_ReadsBoardsForALimitedTimeAndStartsNothing) {
    Make();
    m_application->AddServer();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(Run({"--check-config"}));
    EXPECT_EQ(m_output, "");
    EXPECT_THAT(m_application->m_calls, ElementsAre("OnPreConfig", "OnPostConfig", "(boards for an action)",
                                                    "(accesses limited)", "OnCheckConfig on 2 boards"));
    EXPECT_GT(m_application->m_deadline, begin + std::chrono::seconds(10));
    EXPECT_LT(m_application->m_deadline, std::chrono::steady_clock::now() + std::chrono::seconds(16));
    EXPECT_THAT(bmc::BoardPool::Instance().GetAllLocalBoardUris(), IsEmpty());
    EXPECT_FALSE(test::Exists(m_folder.Path("log")));
}

TEST_F(Application, CheckConfig_BoardsOfTheirOwnForIt) {
    Make();
    m_application->AddBoardBackend(
        {{.name = "other", .doc = "boards of a test"}, {}, {}, {}, [](const auto& /*section*/, const auto& /*file*/) {
             auto backend = std::make_unique<testing::NiceMock<test::MockBackend>>();
             backend->Add(bmc::Uri("io", "7"), "IO7", bmc::BoardType_e::io);
             return backend;
         }});
    EXPECT_TRUE(Run({"--check-config"}, "<zelkor><boards backend='other'/></zelkor>"));
    EXPECT_THAT(m_application->m_calls, Contains("OnCheckConfig on 1 boards"));
}

TEST_F(Application, CheckConfig_FindingsOfTheApplication_InTheOrderOfTheFile) {
    Make();
    m_application->m_findings = {{qcfg::Severity_e::warning, 4, "late"}, {qcfg::Severity_e::warning, 2, "early"}};
    const std::string config = "<zelkor>\n\n<service/>\n</zelkor>";
    const std::string place = m_folder.Path("c.xml");
    EXPECT_TRUE(Run({"--check-config"}, config));
    EXPECT_EQ(m_output, place + ":2: warning: early\n" + place +
                            ":3: warning: <service> is empty and counts as absent\n" + place + ":4: warning: late\n");
    m_application->m_findings = {{qcfg::Severity_e::error, 4, "wrong"}};
    EXPECT_FALSE(Run({"--check-config"}, config));
    EXPECT_THAT(m_output, HasSubstr(place + ":4: error: wrong\n"));
}

TEST_F(Application, CheckConfig_BoardsThatCannotBeMadeOrAProofThatRaises_AreErrors) {
    Make();
    const std::string place = m_folder.Path("c.xml");
    m_application->m_inHook["OnCheckConfig on 2 boards"] = [] { throw qstd::Exception("no proof"); };
    EXPECT_FALSE(Run({"--check-config"}));
    EXPECT_EQ(m_output, place + ": error: no proof\n");
    EXPECT_THAT(bmc::BoardPool::Instance().GetAllLocalBoardUris(), IsEmpty());
    m_application->m_inHook["(boards for an action)"] = [] { throw qstd::Exception("no bus"); };
    EXPECT_FALSE(Run({"--check-config"}, "<zelkor>\n<boards backend='mock'/></zelkor>"));
    EXPECT_EQ(m_output, place + ":2: error: no bus\n");
}

TEST_F(Application, CheckConfig_ErrorsOfTheRules_KeepItFromTheBoards) {
    Make();
    EXPECT_FALSE(Run({"--check-config"}, "<zelkor>\n\n<boards backend='smoke'/></zelkor>"));
    EXPECT_EQ(m_output, m_folder.Path("c.xml") +
                            ":3: error: attribute \"backend\" of <boards>: \"smoke\" is not known (known: mock)\n");
    EXPECT_THAT(m_application->m_calls, ElementsAre("OnPreConfig", "OnPostConfig"));
    EXPECT_FALSE(test::Exists(m_folder.Path("log")));
}

TEST_F(Application, RegistryServer_IsBoundBeforeTheStart_ServesAfterIt_AndRefusesBeforeTheStop) {
    Make();
    m_application->AddServer();
    EXPECT_TRUE(Run());
    EXPECT_THAT(m_application->m_calls,
                ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)", "(server bound)", "OnPostInit",
                            "OnStartRunning", "OnAcceptRequests", "(server serves)", "(accesses limited)",
                            "(server refuses)", "OnShutdown", "(server gone)"));
}

TEST_F(Application, RegistryServer_OfAStartThatFailed_NeverServesAndIsGoneAfterTheStop) {
    Make();
    m_application->AddServer();
    m_application->m_inHook["OnStartRunning"] = [] { throw qstd::Exception("no worker"); };
    EXPECT_FALSE(Run());
    EXPECT_THAT(m_application->m_calls,
                ElementsAre("OnPreInit", "OnPreConfig", "OnPostConfig", "(boards)", "(server bound)", "OnPostInit",
                            "OnStartRunning", "(accesses limited)", "(server refuses)", "OnShutdown", "(server gone)"));
}

TEST_F(Application, RegistryServerThatCannotBeBound_EndsTheRunBeforeTheStart) {
    Make();
    m_application->AddServer();
    m_application->m_inHook["(server bound)"] = [] { throw qstd::Exception("the port is in use"); };
    EXPECT_FALSE(Run());
    EXPECT_THAT(m_error, HasSubstr("recorder: the port is in use"));
    EXPECT_EQ(m_application->m_calls.back(), "(server bound)");
}

TEST_F(Application, Stop_GivesBoardsHalfASecondFromItsBegin) {
    Make();
    std::chrono::steady_clock::time_point begin;
    m_application->m_inHook["OnAcceptRequests"] = [&] { begin = std::chrono::steady_clock::now(); };
    EXPECT_TRUE(Run());
    EXPECT_GE(m_application->m_deadline - begin, std::chrono::milliseconds(500));
    EXPECT_LE(m_application->m_deadline - std::chrono::steady_clock::now(), std::chrono::milliseconds(500));
}

TEST_F(Application, Registry_TakesNodesAndRefusesASecondOfAName) {
    Make();
    m_application->AddRegNode(qnode::factory::Create<qnode::TreeNode>("boards"));
    EXPECT_NE(m_application->GetRegistry()->FindChild("boards"), nullptr);
    EXPECT_THROW(m_application->AddRegNode(qnode::factory::Create<qnode::TreeNode>("boards")), qstd::Exception);
}

TEST_F(Application, Instance_IsTheOneApplication) {
    EXPECT_THROW(qapp::ZelkorApplication::Instance(), qstd::Exception);
    Make();
    EXPECT_EQ(&qapp::ZelkorApplication::Instance(), m_application.get());
    EXPECT_THROW(RecordingApplication(false, true), qstd::Exception);
    m_application.reset();
    EXPECT_THROW(qapp::ZelkorApplication::Instance(), qstd::Exception);
}

TEST_F(Application, Defaults_AreThoseOfAService) {
    Make();
    EXPECT_EQ(m_application->ConfDir() + "/" + m_application->ConfFile(), "/etc/zelkor/recorder.xml");
    EXPECT_EQ(m_application->LogFileDir(), "/var/log/zelkor");
    EXPECT_EQ(m_application->DefaultPort(), 5678);
    EXPECT_EQ(m_application->PidFile(), "");
}

}  // namespace
