// The daemon on a simulated chassis whose boards cannot be reached until the test says so: what it injects before has
// been there from the start. The first access to a board waits until the file named by HELD_UNTIL_GONE is gone. A stop
// does not limit accesses here: slow boards stay slow, so that a test knows what a worker is at.

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "bmc/sim/configuration_rule.h"
#include "bmc/sim/sim_backend.h"
#include "platform_daemon.h"
#include "qreg/corba/server.h"

namespace {

class HeldBackend : public bmc::Backend {
public:
    explicit HeldBackend(std::unique_ptr<bmc::Backend> backend) : m_backend(std::move(backend)) {
        const char* const file = std::getenv("HELD_UNTIL_GONE");
        m_file = file == nullptr ? "" : file;
    }

    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return m_backend->GetAllLocalBoardUris(); }
    bmc::Board* GetBoard(const bmc::Uri& uri) override {
        while (::access(m_file.c_str(), F_OK) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return m_backend->GetBoard(uri);
    }

private:
    std::unique_ptr<bmc::Backend> m_backend;
    std::string m_file;
};

}  // namespace

int main(int argc, char** argv) {
    const auto daemon = std::make_shared<PlatformDaemon>();
    daemon->AddBoardBackend({bmc::sim::ConfigurationRule(),
                             [](const qcfg::Element& section, const std::string& configFile) {
                                 return std::make_unique<HeldBackend>(bmc::sim::Create(section, configFile));
                             },
                             {}});
    daemon->SetRegistryServer(qreg::corba::CreateServer);
    return daemon->Run(argc, argv) ? 0 : 1;
}
