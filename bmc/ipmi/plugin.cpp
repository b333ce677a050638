#include "bmc/ipmi/plugin.h"

#include "bmc/ipmi/ipmi_backend.h"
#include "bmc/ipmi/make_transport.h"
#include "build_info.h"

namespace {

std::unique_ptr<bmc::Backend> CreateBackend(const bmc::ipmi::Settings& settings, const bmc::ipmi::PluginHost& host) {
    return std::make_unique<bmc::ipmi::IpmiBackend>(settings, bmc::ipmi::MakeTransport, host.log);
}

constexpr bmc::ipmi::PluginApi c_api{c_buildId, CreateBackend};

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming): the name that hosts look for
extern "C" __attribute__((visibility("default"))) const bmc::ipmi::PluginApi* ZelkorBmcIpmi() {
    return &c_api;
}
