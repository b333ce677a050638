// The daemon on a backend whose boards take their time from the very start, so that a worker is still reading its
// settings when `main` has returned. For tests of the end of the process.

#include <chrono>
#include <memory>
#include <thread>

#include "bmc/sim/configuration_rule.h"
#include "bmc/sim/sim_backend.h"
#include "platform_daemon.h"

namespace {

class SlowBackend : public bmc::Backend {
public:
    explicit SlowBackend(std::unique_ptr<bmc::Backend> backend) : m_backend(std::move(backend)) {}

    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return m_backend->GetAllLocalBoardUris(); }
    bmc::Board* GetBoard(const bmc::Uri& uri) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return m_backend->GetBoard(uri);
    }
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) override { m_backend->LimitAccesses(deadline); }

private:
    std::unique_ptr<bmc::Backend> m_backend;
};

}  // namespace

int main(int argc, char** argv) {
    const auto daemon = std::make_shared<PlatformDaemon>();
    daemon->AddBoardBackend({bmc::sim::ConfigurationRule(),
                             [](const qcfg::Element& section, const std::string& configFile) {
                                 return std::make_unique<SlowBackend>(bmc::sim::Create(section, configFile));
                             },
                             {}});
    return daemon->Run(argc, argv) ? 0 : 1;
}
