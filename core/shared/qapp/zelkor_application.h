#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "qapp/actions.h"
#include "qapp/board_backend.h"
#include "qapp/health.h"
#include "qapp/options.h"
#include "qapp/pid_file.h"
#include "qapp/zelkor_board.h"
#include "qapp/zelkor_object.h"
#include "qcfg/configuration.h"
#include "qcfg/finding.h"
#include "qcfg/schema.h"
#include "qfeature/local_timing_sync.h"
#include "qnode/tree_node.h"
#include "qreg/server.h"

namespace qapp {

class Detacher;
class Signals;

/// A service of the instrument: command line, configuration, log, boards, registry tree, signals, main loop. A program
/// derives its own application, which the framework calls back through hooks on the main thread.
///
/// A stop is bounded, however slow boards are: see bmc::Backend::LimitAccesses, which is in force from half a second
/// after the stop began, the main thread being the one whose writes are let through.
///
/// What other threads may use of it (GetConfig, GetRegistry, LogFileDir) is ready before OnPostInit and stays to the
/// very end of the process when the application was made with std::make_shared: Run keeps it alive past the end of
/// every object that was constructed after Run began, worker threads that are joined at process exit included.
class ZelkorApplication : public ZelkorObject, public std::enable_shared_from_this<ZelkorApplication> {
public:
    /// @param name the program's name
    /// @param createsBoards whether the framework asks CreateBoard for each local board at start
    /// @param runsOnce whether Run goes on to the stop after the start, instead of waiting to be asked for it
    ZelkorApplication(const std::string& name, bool createsBoards, bool runsOnce);
    ~ZelkorApplication() override;

    /// The process's one application. Callable from any thread. @throws qstd::Exception when there is none.
    static ZelkorApplication& Instance();

    /// Lives the application's life: returns after an orderly stop, or at once after --help and the like (true), or
    /// when it could not run (false), having said why in one line on standard error. Main thread, once.
    bool Run(int argc, char** argv);

    /// Offers a backend to `boards/@backend`; the first one is the default. Before Run.
    void AddBoardBackend(BoardBackend backend);

    /// How the registry server is made; without it the registry tree is not served. Before Run.
    void SetRegistryServer(qreg::ServerFactory factory);

    /// Adds something that the program can do instead of serving, asked for by the option --@p name: Run loads the
    /// configuration, opens the log (on standard error, too) and the boards, calls @p function and ends. A service that
    /// runs at the same time is not disturbed: there are no pid file, no registry server and no workers, and signals
    /// end the program at once. The options that only a service needs have no effect. Before Run.
    /// @param function what it throws makes Run log its text as an error and return false
    void AddAction(const std::string& name, const std::string& help, std::function<void()> function);

    /// The configuration. Any thread.
    const qcfg::Configuration& GetConfig() const noexcept { return m_config; }

    /// Root of the registry tree. Any thread.
    const std::shared_ptr<qnode::TreeNode>& GetRegistry() const noexcept { return m_registry; }

    /// Adds a node below the root of the registry tree. Any thread.
    /// @throws qstd::Exception naming the node when the root has a child of that name.
    void AddRegNode(const std::shared_ptr<qnode::TreeNode>& node);

    /// Of the parts of the service, which have ended before their time. Any thread.
    Health& GetHealth() noexcept { return m_health; }

    /// Folder of the log files, without a slash at its end. Any thread.
    const std::string& LogFileDir() const noexcept { return m_logFileDir; }

    /// The program's name.
    virtual const std::string& ApplicationName() const;
    /// Pid file unless the command line names one; empty: none.
    virtual std::string PidFile() const;
    /// Number of the application among those of the instrument's network.
    virtual int NetID() const;
    /// TCP port of the registry server unless command line or configuration name one.
    virtual int DefaultPort() const;
    /// The largest message of the registry server, in bytes.
    virtual int DefaultMaxPacketSize() const;
    /// Folder of the configuration file.
    virtual std::string ConfDir() const;
    /// Name of the configuration file in it.
    virtual std::string ConfFile() const;
    /// The XML schema of the configuration.
    virtual std::string CreateXsd() const;
    /// The application's own object for a board; null: none wanted.
    virtual ZelkorBoard* CreateBoard(const bmc::Board* board);
    /// Takes over an object made by CreateBoard.
    virtual void AddBoard(ZelkorBoard* board);
    /// Timing hooks: a synchronisation of the instrument's timing is announced; is done.
    virtual void OnSyncAnnounced(qfeature::LocalTimingSync& /*sync*/) {}
    virtual void OnSynchronized(qfeature::LocalTimingSync& /*sync*/) {}
    /// --check-config: adds what the application finds wrong with a configuration that keeps all rules. The boards are
    /// behind the pool for nothing but reading; accesses to them raise bmc::BrokenOff once the check has lasted too
    /// long, see bmc::Backend::LimitAccesses. There is no log.
    virtual void OnCheckConfig(qcfg::Findings& /*findings*/) {}
    /// May change the name of the log file.
    virtual void OnInitLogFileName(std::string& /*name*/) const {}
    /// May change the default folder of the log files.
    virtual void OnInitLogFileDir(std::string& /*folder*/) const {}
    /// May add options to the command line.
    virtual void OnProgramOptionsAdd(boost::program_options::options_description& /*description*/) {}
    /// Takes the values of added options. @throws qstd::Exception for a bad one.
    virtual void OnProgramOptionsProcess(const boost::program_options::variables_map& /*values*/) {}

protected:
    /// Replaces the configuration and the folder of the log files without Run, for tests of what uses them.
    void Prepare(const std::string& configText, const std::string& logFileDir);

    /// The rules of the application's own sections of the configuration, for its check and its schema.
    virtual std::vector<qcfg::ElementRule> GetSectionRules() const;

private:
    Options ReadCommandLine(int argc, char** argv);
    bool RunUnguarded(int argc, char** argv, Detacher& detacher);
    bool CheckAndPrint(const Options& options);

    /// Writes @p text to standard output. @return true @throws qstd::Exception when it does not arrive there.
    static bool Print(const std::string& text);
    void ProveOnBoards(qcfg::Findings& findings);
    qcfg::ElementRule GetRules() const;
    void LoadConfiguration(const Options& options);
    void OpenLogs(const Options& options);
    void OpenBoards(bool isForAction);
    bool RunAction(const Options& options);
    std::shared_ptr<qcfg::Element> FindBoardsSection() const;
    const BoardBackend& FindBackend(const qcfg::Element& section) const;
    void CreateBoards();
    void OpenRegistry(const Options& options);
    bool Serve(Signals& signals, Detacher& detacher, bool isForeground);
    void AcceptRequests();
    /// Has the server speak TLS with what its files say now. Wrong ones are told of and change nothing.
    void RenewTls();
    bool CallHooks(const char* phase, bool isForeground, const std::function<void()>& hooks);

    const std::string m_name;
    const bool m_createsBoards;
    const bool m_runsOnce;
    std::vector<BoardBackend> m_backends;
    Actions m_actions;
    qcfg::Configuration m_config;
    Health m_health;
    std::shared_ptr<qnode::TreeNode> m_registry;
    std::string m_logFileDir;
    std::string m_helpText;
    qapp::PidFile m_pidFile;
    qreg::ServerFactory m_createServer;
    std::unique_ptr<qreg::Server> m_server;  ///< from before OnPostInit to the end of Run
    /// What TLS began with, until its concerns are told; null without TLS.
    std::shared_ptr<const qreg::tls::Identity> m_firstIdentity;
    bool m_isAnyPort = false;     ///< the system chose the server's port
    bool m_isAnyTlsPort = false;  ///< and that of TLS beside it
    std::vector<std::unique_ptr<ZelkorBoard>> m_boards;
};

}  // namespace qapp
