#include "platform_daemon.h"

#include "build_info.h"
#include "configuration_rules.h"
#include "monitor.h"
#include "qnode/node.h"
#include "qstd/log.h"
#include "qstd/trace_file.h"
#include "qstd/trace_fnc.h"

static_assert(qstd::SourceName(__FILE__) == "platform_daemon", "trace records name sources of the daemon bare");

namespace {

constexpr int c_defaultPort = 5678;

const std::string& Name() {
    static const std::string name = "zelkor-platformd";
    return name;
}

[[maybe_unused]] const bool c_versionIsSet = InitVersion();

}  // namespace

PlatformDaemon::PlatformDaemon() : qapp::ZelkorApplication(Name(), false, false) {}

PlatformDaemon::~PlatformDaemon() = default;

const std::string& PlatformDaemon::ApplicationName() const {
    return Name();
}

int PlatformDaemon::DefaultPort() const {
    return c_defaultPort;
}

qapp::ZelkorBoard* PlatformDaemon::CreateBoard(const bmc::Board* /*board*/) {
    const qstd::TraceFnc trace;
    return nullptr;
}

std::vector<qcfg::ElementRule> PlatformDaemon::GetSectionRules() const {
    return WorkerSectionRules();
}

void PlatformDaemon::OnPostInit() {
    qstd::LogInfo("**************************************************");
    qstd::LogInfo("***Platform daemon started");
    if (qstd::TraceActiveLevel() > 3) {
        qstd::TraceHere(4, "Exporting following nodes through the qreg:");
        qstd::TraceHere(4, qnode::Node(GetRegistry()).DumpSubTree(-1, 0, qnode::Node::c_defMaxValueLen));
    }
    Monitor::GetInstance();
}

void PlatformDaemon::OnShutdown() {
    qstd::LogInfo("***Platform daemon is stopping.");
    Monitor::GetInstance().StopThread();
}
