#include <memory>

#include "bmc/ipmi/configuration_rule.h"
#include "bmc/ipmi/plugin_loader.h"
#include "bmc/sim/configuration_rule.h"
#include "bmc/sim/sim_backend.h"
#include "fans_safe.h"
#include "platform_daemon.h"
#include "qreg/corba/server.h"

/// The composition root: puts the daemon together from its parts and runs it.
int main(int argc, char** argv) {
    const auto daemon = std::make_shared<PlatformDaemon>();
    daemon->AddBoardBackend(
        {bmc::sim::ConfigurationRule(), bmc::sim::Create, bmc::sim::Check, bmc::sim::CreateWithoutControl});
    daemon->AddBoardBackend({bmc::ipmi::ConfigurationRule(), bmc::ipmi::Create, bmc::ipmi::Check,
                             bmc::ipmi::CreateToAct, bmc::ipmi::CreateToLook});
    daemon->SetRegistryServer(qreg::corba::CreateServer);
    daemon->AddAction("fans-safe", "set all fans to maximum speed, prove that they are, exit", SetFansSafe);
    return daemon->Run(argc, argv) ? 0 : 1;
}
