#include "qapp/zelkor_application.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <system_error>
#include <utility>

#include "bmc/board_pool.h"
#include "qapp/detacher.h"
#include "qapp/main_loop.h"
#include "qapp/own_section.h"
#include "qapp/registry_settings.h"
#include "qapp/service_notifier.h"
#include "qapp/service_settings.h"
#include "qapp/signals.h"
#include "qapp/start_watch.h"
#include "qcfg/document.h"
#include "qnode/factory.h"
#include "qreg/tls/identity.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "qstd/ver_info.h"

namespace qapp {

namespace {

std::atomic<ZelkorApplication*> g_instance{nullptr};

constexpr int c_defaultPort = 5678;
/// How long passes of workers and requests of clients may still wait for boards once a stop was asked for. On boards
/// that answer as they should all of them come to their end in that time. With boards that take a second for an answer
/// there remains enough of two seconds for the one access that leaves the fans safe.
constexpr std::chrono::milliseconds c_boardsMayTake{500};
constexpr int c_defaultMaxPacketSize = 2 * 1024 * 1024;

/// Puts the null device in place of a standard stream that whoever started the program left closed: its number would go
/// to the next file opened, which then got what is meant for the stream, or was lost when the program detaches.
void OpenMissingStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = ::open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

void MakeFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw qstd::Exception("Cannot create log folder " + folder + ": " + error.message());
    }
}

}  // namespace

ZelkorApplication::ZelkorApplication(const std::string& name, bool createsBoards, bool runsOnce)
    : m_name(name),
      m_createsBoards(createsBoards),
      m_runsOnce(runsOnce),
      m_registry(qnode::factory::Create<qnode::TreeNode>("registry")),
      m_logFileDir("/var/log/zelkor") {
    ZelkorApplication* none = nullptr;
    if (!g_instance.compare_exchange_strong(none, this)) {
        throw qstd::Exception("A process has one application only; " + none->m_name + " is there already");
    }
}

ZelkorApplication::~ZelkorApplication() {
    g_instance = nullptr;
}

ZelkorApplication& ZelkorApplication::Instance() {
    ZelkorApplication* const instance = g_instance.load();
    if (instance == nullptr) {
        throw qstd::Exception("There is no application");
    }
    return *instance;
}

bool ZelkorApplication::Run(int argc, char** argv) {
    // Keeps the application past the end of `main`, until the workers' threads, started later, were joined.
    static std::shared_ptr<ZelkorApplication> keepAlive;
    keepAlive = weak_from_this().lock();
    Detacher detacher;  // outlives the message below: its end is what lets a waiting caller go
    bool isDone = false;
    try {
        isDone = RunUnguarded(argc, argv, detacher);
    } catch (const std::exception& error) {
        std::cerr << m_name << ": " << error.what() << std::endl;
        if (qstd::Log::m_enabled) {
            qstd::LogError(error.what());
        }
    }
    m_server.reset();  // its threads end with Run, whichever way that ended
    return isDone;
}

bool ZelkorApplication::RunUnguarded(int argc, char** argv, Detacher& detacher) {
    OpenMissingStandardStreams();
    const Options options = ReadCommandLine(argc, argv);
    if (options.help) {
        return Print(m_helpText);
    }
    if (options.version) {
        return Print(m_name + ' ' + qstd::VerInfo::Get().ToString() + '\n');
    }
    if (options.printSchema) {
        return Print(CreateXsd());
    }
    if (options.checkConfig) {
        return CheckAndPrint(options);
    }
    if (options.action != nullptr) {
        return RunAction(options);
    }
    Signals signals;
    const auto isStopRequested = [&signals] {
        signals.Poll();
        return signals.IsStopRequested();
    };
    if (options.daemon) {
        detacher.Detach();
    }
    ::tzset();
    OnPreInit();
    if (!options.pidFile.empty()) {
        m_pidFile.Create(options.pidFile);
    }
    LoadConfiguration(options);
    if (isStopRequested()) {
        return true;
    }
    OpenLogs(options);
    OpenBoards(false);
    m_health.SetWatchdog(ReadServiceSettings(m_config).watchdog);
    OpenRegistry(options);
    CreateBoards();
    if (isStopRequested()) {
        return true;
    }
    return Serve(signals, detacher, !options.daemon);
}

void ZelkorApplication::LoadConfiguration(const Options& options) {
    OnPreConfig();
    m_config.Load(options.configFile);
    OnPostConfig();
}

void ZelkorApplication::OpenLogs(const Options& options) {
    std::string logName = m_name + ".log";
    OnInitLogFileName(logName);
    MakeFolder(options.logDir);
    m_logFileDir = options.logDir;
    qstd::Log::GetInstance().OpenFile(m_logFileDir + "/" + logName);
    if (options.traceLevel > 0) {
        qstd::TraceFile::GetInstance().Open(m_logFileDir + "/" + m_name + ".trace", options.traceLevel);
    }
}

std::shared_ptr<qcfg::Element> ZelkorApplication::FindBoardsSection() const {
    std::shared_ptr<qcfg::Element> section = FindOnlySection(m_config, "boards");
    return section == nullptr ? std::make_shared<qcfg::Element>("boards") : section;
}

const BoardBackend& ZelkorApplication::FindBackend(const qcfg::Element& section) const {
    if (m_backends.empty()) {
        throw qstd::Exception("This program has no way to reach boards");
    }
    std::shared_ptr<qcfg::Attribute> attribute;
    if (!section.FindAttr("backend", attribute)) {
        return m_backends.front();
    }
    std::string known;
    for (const BoardBackend& backend : m_backends) {
        if (backend.rule.name == attribute->GetValue()) {
            return backend;
        }
        known += (known.empty() ? "" : ", ") + backend.rule.name;
    }
    throw qstd::Exception(qcfg::AtLine(m_config.GetFileName(), section.GetLine(),
                                       "unknown backend \"" + attribute->GetValue() + "\" (known: " + known + ")"));
}

void ZelkorApplication::OpenBoards(bool isForAction) {
    const std::shared_ptr<qcfg::Element> section = FindBoardsSection();
    const BoardBackend& backend = FindBackend(*section);
    const auto& create = isForAction && backend.createForAction ? backend.createForAction : backend.create;
    bmc::BoardPool::Instance().Open(create(*section, m_config.GetFileName()));
}

void ZelkorApplication::CreateBoards() {
    if (!m_createsBoards) {
        return;
    }
    const bmc::BoardPool& pool = bmc::BoardPool::Instance();
    for (const bmc::Uri& uri : pool.GetAllLocalBoardUris()) {
        const bmc::Board* const board = pool.GetBoard(uri);
        ZelkorBoard* const own = board == nullptr ? nullptr : CreateBoard(board);
        if (own != nullptr) {
            AddBoard(own);
        }
    }
}

bool ZelkorApplication::CallHooks(const char* phase, bool isForeground, const std::function<void()>& hooks) {
    std::string problem = std::string("Problem at ") + phase + " - ";
    try {
        hooks();
        return true;
    } catch (const std::exception& error) {
        problem += error.what();
    } catch (...) {
        problem += "Unknown Exception";
    }
    qstd::LogError(problem);
    if (!isForeground) {
        // The log does not show there. Once the program is ready this goes to the null device.
        std::cerr << m_name << ": " << problem << std::endl;
    }
    return false;
}

void ZelkorApplication::OpenRegistry(const Options& options) {
    qreg::ServerSettings settings;
    settings.product = m_name + ' ' + qstd::VerInfo::Get().ToString();
    settings.port = DefaultPort();
    settings.maxMessage = static_cast<std::size_t>(DefaultMaxPacketSize());
    settings = ReadRegistrySettings(m_config, options, std::move(settings));
    const bool isTlsBeside = settings.tls && settings.tls->port;
    m_isAnyPort = settings.port == 0;
    m_isAnyTlsPort = isTlsBeside && *settings.tls->port == 0;
    if (m_createServer) {
        m_firstIdentity = settings.tls ? settings.tls->identity : nullptr;
        m_server = m_createServer(settings, m_registry);
    }
}

void ZelkorApplication::AcceptRequests() {
    if (m_server == nullptr) {
        return;
    }
    m_server->Serve();
    const auto tell = [this](int port) {
        qstd::LogInfo("Registry server listens on port " + std::to_string(port) +
                      (port == m_server->GetTlsPort() ? " with TLS" : ""));
    };
    if (m_isAnyPort) {
        tell(m_server->GetPort());
    }
    if (m_isAnyTlsPort) {
        tell(m_server->GetTlsPort());
    }
    if (m_firstIdentity != nullptr) {
        TellTlsConcerns(*m_firstIdentity);
        m_firstIdentity = nullptr;
    }
}

void ZelkorApplication::RenewTls() {
    if (m_server == nullptr || m_server->GetTlsPort() == 0) {
        return;
    }
    try {
        const std::shared_ptr<const qreg::tls::Identity> identity = ReadTlsIdentity(m_config);
        m_server->RenewTls(*identity);
        qstd::LogInfo("TLS: certificates, key and revocation lists were read anew.");
        TellTlsConcerns(*identity);
    } catch (const std::exception& error) {
        qstd::LogError(std::string("TLS goes on with the files as they were read before - ") + error.what());
    }
}

bool ZelkorApplication::Serve(Signals& signals, Detacher& detacher, bool isForeground) {
    if (isForeground) {
        qstd::Log::GetInstance().OpenStandardError();
    }
    const ServiceNotifier notifier;
    // Watches the calendar clock from before the first worker sleeps.
    MainLoop mainLoop(signals, notifier, m_health, [this] { RenewTls(); });
    // A start that waits for boards ends, too, when a stop is asked for; the limit set then stands.
    std::optional<std::chrono::steady_clock::time_point> lastMoment;
    const auto limitAccesses = [&lastMoment] {
        lastMoment = lastMoment.value_or(std::chrono::steady_clock::now() + c_boardsMayTake);
        bmc::BoardPool::Instance().LimitAccesses(*lastMoment);
    };
    std::optional<StartWatch> startWatch(limitAccesses);
    const bool isStarted = CallHooks("start", isForeground, [this] {
        OnPostInit();
        OnStartRunning();
        OnAcceptRequests();
        AcceptRequests();
    });
    startWatch.reset();
    if (isStarted) {
        ::malloc_trim(0);  // what reading the configuration and the boards' descriptions took is not needed again
        notifier.Ready();
        detacher.Ready();
        if (!m_runsOnce) {
            mainLoop.Run();
        }
    }
    notifier.Stopping();
    // Nobody undoes what OnShutdown leaves behind, the fans' speed for one, and no slow board holds the stop up:
    // - Refuse lets no write of a client begin and waits until those under way have ended, by themselves or broken off
    //   at the deadline. It waits for a second: a write that is still there then, because its thread gets no processor,
    //   is past the deadline and has no effect on a board any more.
    // - OnShutdown asks the workers to stop and waits for the pass of each, which ends in the same way.
    // - Power actions are let through. They do not touch what this thread writes.
    limitAccesses();
    const bool isRefusing = CallHooks("stop", isForeground, [this] {
        if (m_server != nullptr) {
            m_server->Refuse();
        }
    });
    const bool isStopped = CallHooks("stop", isForeground, [this] { OnShutdown(); });
    m_server.reset();
    return isStarted && isRefusing && isStopped;
}

void ZelkorApplication::AddBoardBackend(BoardBackend backend) {
    m_backends.push_back(std::move(backend));
}

void ZelkorApplication::SetRegistryServer(qreg::ServerFactory factory) {
    m_createServer = std::move(factory);
}

void ZelkorApplication::AddAction(const std::string& name, const std::string& help, std::function<void()> function) {
    m_actions.Add({name, help, std::move(function)});
}

void ZelkorApplication::AddRegNode(const std::shared_ptr<qnode::TreeNode>& node) {
    std::shared_ptr<qnode::TreeNode> added = node;
    OnRegistryAdd(added);
    m_registry->Add(added);
}

void ZelkorApplication::Prepare(const std::string& configText, const std::string& logFileDir) {
    m_config.LoadText(configText, "configuration");
    m_logFileDir = logFileDir;
}

const std::string& ZelkorApplication::ApplicationName() const {
    return m_name;
}

std::string ZelkorApplication::PidFile() const {
    return {};
}

int ZelkorApplication::NetID() const {
    return 0;
}

int ZelkorApplication::DefaultPort() const {
    return c_defaultPort;
}

int ZelkorApplication::DefaultMaxPacketSize() const {
    return c_defaultMaxPacketSize;
}

std::string ZelkorApplication::ConfDir() const {
    return "/etc/zelkor";
}

std::string ZelkorApplication::ConfFile() const {
    return m_name + ".xml";
}

std::vector<qcfg::ElementRule> ZelkorApplication::GetSectionRules() const {
    return {};
}

ZelkorBoard* ZelkorApplication::CreateBoard(const bmc::Board* /*board*/) {
    return nullptr;
}

void ZelkorApplication::AddBoard(ZelkorBoard* board) {
    m_boards.emplace_back(board);
}

}  // namespace qapp
