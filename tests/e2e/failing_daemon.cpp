// The daemon on a simulated chassis some of whose boards fail from the very start: those that FAILING_BOARDS names, as
// "io/1=fail,io/2=slow,io/3=missing". A slow one takes an hour. What was done to the hardware is appended to the file
// that HARDWARE_JOURNAL names, one action a line.

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <utility>

#include "bmc/sim/configuration_rule.h"
#include "bmc/sim/sim_backend.h"
#include "platform_daemon.h"
#include "qreg/corba/server.h"
#include "qstd/exception.h"
#include "qstd/strings.h"

namespace {

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void Fail(bmc::sim::SimBackend& chassis, const std::string& failure) {
    const std::size_t equals = failure.find('=');
    bmc::sim::SimBoard* const board = chassis.FindBoard(failure.substr(0, equals));
    const std::string how = failure.substr(equals + 1);
    if (board == nullptr) {
        throw qstd::Exception("no such board: " + failure);
    }
    if (how == "fail") {
        board->Gate().Failure().Set("the bus is stuck");
    } else if (how == "slow") {
        board->Gate().SetDelay(std::chrono::hours(1));
    } else {
        board->SetMissing(true);
    }
}

class FailingBackend : public bmc::Backend {
public:
    explicit FailingBackend(std::unique_ptr<bmc::Backend> chassis)
        : m_owned(std::move(chassis)), m_chassis(dynamic_cast<bmc::sim::SimBackend&>(*m_owned)) {
        for (const std::string& failure : qstd::TokenizeString(Variable("FAILING_BOARDS"), ',')) {
            Fail(m_chassis, failure);
        }
    }
    ~FailingBackend() override {
        std::ofstream file(Variable("HARDWARE_JOURNAL"), std::ios::app);
        for (const auto& entry : m_chassis.GetJournal().Get(0, bmc::sim::Journal::c_maxEntries).entries) {
            file << entry.uri << ' ' << entry.action.front() << '\n';
        }
    }

    std::vector<bmc::Uri> GetAllLocalBoardUris() const override { return m_chassis.GetAllLocalBoardUris(); }
    bmc::Board* GetBoard(const bmc::Uri& uri) override { return m_chassis.GetBoard(uri); }
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) override { m_chassis.LimitAccesses(deadline); }

private:
    std::unique_ptr<bmc::Backend> m_owned;
    bmc::sim::SimBackend& m_chassis;
};

template <class Create>
auto Failing(Create create) {
    return [create](const qcfg::Element& section, const std::string& configFile) {
        return std::make_unique<FailingBackend>(create(section, configFile));
    };
}

}  // namespace

int main(int argc, char** argv) {
    const auto daemon = std::make_shared<PlatformDaemon>();
    daemon->AddBoardBackend({bmc::sim::ConfigurationRule(), Failing(bmc::sim::Create), bmc::sim::Check,
                             Failing(bmc::sim::CreateWithoutControl)});
    daemon->SetRegistryServer(qreg::corba::CreateServer);
    return daemon->Run(argc, argv) ? 0 : 1;
}
