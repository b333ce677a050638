#include "tests/integration/ipmi/failure_fixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "bmc/ipmi/make_transport.h"
#include "tests/support/file.h"

namespace test {

namespace {

/// Counts the sessions of another transport.
class CountingTransport : public bmc::ipmi::Transport {
public:
    CountingTransport(std::unique_ptr<Transport> transport, OpeningCounts& counts)
        : m_transport(std::move(transport)), m_counts(counts) {}

    void Open(bmc::ipmi::SteadyTime deadline) override {
        ++m_counts.tried;
        m_transport->Open(deadline);
        ++m_counts.opened;
    }
    bmc::ipmi::Response Exchange(const bmc::ipmi::Target& target, const bmc::ipmi::Request& request,
                                 bmc::ipmi::Sending_e sending, bmc::ipmi::SteadyTime deadline) override {
        return m_transport->Exchange(target, request, sending, deadline);
    }
    void Close(bmc::ipmi::SteadyTime deadline) noexcept override { m_transport->Close(deadline); }
    void Interrupt() override { m_transport->Interrupt(); }

private:
    const std::unique_ptr<Transport> m_transport;
    OpeningCounts& m_counts;
};

bmc::ipmi::FpgaTemplate Fpga() {
    return {"0x30 0x10 {addr:hi} {addr:lo}", "0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}",
            "{value:hi} {value:lo}"};
}

}  // namespace

void IpmiFailureTest::SetUp() {
    WritePassword(SimulatedUser{}.password);
}

std::vector<SimulatedSensor> IpmiFailureTest::Sensors(int count) {
    constexpr int c_step = 8;
    std::vector<SimulatedSensor> sensors;
    for (int id = 1; id <= count; ++id) {
        SimulatedSensor sensor;
        sensor.number = static_cast<std::uint8_t>(id);
        sensor.name = "T" + std::to_string(id);
        sensor.raw = static_cast<std::uint8_t>(id * c_step);
        sensor.thresholds = {1, 2, 3, 240, 245, static_cast<std::uint8_t>(230 + id)};
        sensors.push_back(sensor);
    }
    return sensors;
}

void IpmiFailureTest::StartControllers(int boards, int sensors) {
    for (int i = 0; i < boards; ++i) {
        SimulatedChassis chassis;
        chassis.controllers.front().sensors = Sensors(sensors);
        auto simulator = std::make_unique<IpmiSimulator>(chassis);
        auto relay = std::make_unique<UdpRelay>(simulator->GetPort());
        const bmc::Uri uri = i == 0 ? bmc::c_localIcbUri : bmc::Uri("slot", std::to_string(i));
        m_sites.push_back({std::move(simulator), std::move(relay), uri});
    }
}

void IpmiFailureTest::OpenBackend(bool isAwaited) {
    bmc::ipmi::Settings settings;
    for (const Site& site : m_sites) {
        bmc::ipmi::ControllerSettings way;
        way.host = "127.0.0.1";
        way.port = site.relay->GetPort();
        way.user = m_ways.user;
        way.password.path = m_folder.Path("password");
        way.privilege = bmc::ipmi::Privilege_e::administrator;
        way.cipherSuite = m_ways.cipherSuite;
        way.timeout = m_ways.timeout;
        way.retries = m_ways.retries;
        bmc::ipmi::BoardSettings board;
        board.uri = site.uri;
        board.type = site.uri == bmc::c_localIcbUri ? bmc::BoardType_e::icb : bmc::BoardType_e::io;
        board.name = bmc::BoardLabel(site.uri);
        board.controller = settings.controllers.size();
        board.fpga = Fpga();
        settings.controllers.push_back(way);
        settings.boards.push_back(board);
    }
    const auto makeTransport = [this](const bmc::ipmi::ControllerSettings& way) {
        return std::make_unique<CountingTransport>(bmc::ipmi::MakeTransport(way), m_openings);
    };
    const auto log = [this](qstd::LogLevel_e /*level*/, const std::string& text) {
        const std::lock_guard lock(m_mutex);
        m_messages.push_back(text);
    };
    m_backend = std::make_unique<bmc::ipmi::IpmiBackend>(settings, makeTransport, log, m_timing);
    for (std::size_t site = 0; isAwaited && site < m_sites.size(); ++site) {
        std::size_t known = 0;
        ASSERT_TRUE(Await([&] {
            ErrorOf([&] { known = Board(site).GetSensorsIds().size(); });
            return known != 0;
        })) << testing::PrintToString(Messages());
        ASSERT_EQ(known, Simulator(site).GetController().sensors.size());
    }
}

double IpmiFailureTest::Read(std::size_t site, int id) {
    bmc::Sensor* const sensor = Board(site).GetSensor(bmc::SensorId(id));
    if (sensor == nullptr) {
        throw qstd::Exception("there is no sensor " + std::to_string(id));
    }
    return sensor->Read().Converted();
}

std::string IpmiFailureTest::ErrorOf(const std::function<void()>& access) {
    try {
        access();
        return {};
    } catch (const qstd::Exception& error) {
        const std::string text = error.what();
        return text.empty() ? "an exception without a text" : text;
    }
}

bool IpmiFailureTest::Await(const std::function<bool()>& isTrue) {
    const auto end = Clock::now() + std::chrono::seconds(100);
    while (!isTrue()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(Milliseconds(2));
    }
    return true;
}

void IpmiFailureTest::WritePassword(const std::string& password) const {
    WriteFile(m_folder.Path("password"), password + "\n");
    ASSERT_EQ(::chmod(m_folder.Path("password").c_str(), S_IRUSR | S_IWUSR), 0);
}

std::vector<std::string> IpmiFailureTest::Messages() const {
    const std::lock_guard lock(m_mutex);
    return m_messages;
}

void IpmiFailureTest::ClearMessages() {
    const std::lock_guard lock(m_mutex);
    m_messages.clear();
}

long IpmiFailureTest::CountMessages(const std::string& text) const {
    const auto messages = Messages();
    return std::count_if(messages.begin(), messages.end(),
                         [&](const std::string& message) { return message.find(text) != std::string::npos; });
}

}  // namespace test
