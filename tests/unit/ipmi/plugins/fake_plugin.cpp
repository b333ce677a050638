// Stands in for the backend's shared object. How it behaves is decided when it is compiled (the build's id, the name of
// the entry), or by the folder of the cache in its settings.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bmc/ipmi/plugin.h"
#include "build_info.h"
#include "qstd/exception.h"

namespace {

class FakeBackend : public bmc::Backend {
public:
    explicit FakeBackend(std::vector<bmc::Uri> uris) : m_uris(std::move(uris)) {}
    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return m_uris; }
    bmc::Board* GetBoard(const bmc::Uri& /*uri*/) override { return nullptr; }

private:
    std::vector<bmc::Uri> m_uris;
};

std::unique_ptr<bmc::Backend> Create(const bmc::ipmi::Settings& settings, const bmc::ipmi::PluginHost& host) {
    if (settings.cacheFolder == "raise") {
        throw qstd::Exception("the cache is full");
    }
    host.log(qstd::LogLevel_e::info, "created");
    host.log(qstd::LogLevel_e::warning, "slow");
    host.log(qstd::LogLevel_e::error, "silent");
    host.log(qstd::LogLevel_e::critical, "hot");
    std::vector<bmc::Uri> uris;
    for (const bmc::ipmi::BoardSettings& board : settings.boards) {
        uris.push_back(board.uri);
    }
    return std::make_unique<FakeBackend>(std::move(uris));
}

}  // namespace

extern "C" const bmc::ipmi::PluginApi* FAKE_ENTRY();

const bmc::ipmi::PluginApi* FAKE_ENTRY() {
    static const bmc::ipmi::PluginApi api{FAKE_BUILD, Create};
    return &api;
}
