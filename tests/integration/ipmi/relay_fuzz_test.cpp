// Packets that are lost, late, twice, cut short, spoilt or out of order, on their way to the controller and back.

#include <cmath>
#include <random>
#include <set>
#include <thread>

#include "tests/integration/ipmi/failure_fixture.h"

namespace test {

namespace {

constexpr int c_sensors = 20;
constexpr std::uint16_t c_register = 0x40;

/// Uses a board from several threads and proves every value that comes of it.
class RelayFaultTest : public IpmiFailureTest {
protected:
    void Start(std::uint8_t cipherSuite = 17) {
        m_ways.cipherSuite = cipherSuite;
        m_ways.timeout = Milliseconds(25);
        m_ways.retries = 3;
        m_timing.leastBackOff = m_timing.mostBackOff = Milliseconds(10);
        StartControllers(1, c_sensors);
        for (std::uint16_t i = 0; i < 8; ++i) {
            Simulator().SetRegister(c_bmc, static_cast<std::uint16_t>(c_register + i), ValueOf(i));
        }
        OpenBackend();
    }
    static std::uint16_t ValueOf(std::uint16_t i) { return static_cast<std::uint16_t>(0x1100 * (i + 1) + 7); }

    /// Runs @p spoil beside users of the board, who read right values or nothing.
    void UseDuring(const std::function<void()>& spoil) {
        std::atomic<bool> isOver{false};
        std::thread sweeper([&] {
            while (!isOver) {
                Sweep();
            }
        });
        std::thread caller([&] {
            while (!isOver) {
                Call();
            }
        });
        spoil();
        isOver = true;
        sweeper.join();
        caller.join();
    }

    void Sweep() {
        const auto sweep = m_backend->StartSweep({{m_sites[0].uri, Board().GetSensorsIds()}});
        for (int id = 1; id <= c_sensors; ++id) {
            Take([&] { return sweep->Read(*Board().GetSensor(bmc::SensorId(id))).Converted(); }, id * 8);
            const bmc::Sensor& sensor = *Board().GetSensor(bmc::SensorId(id));
            EXPECT_THAT(sensor.GetUpperNonRecoverable().Converted(), testing::AnyOf(230 + id, HUGE_VAL));
            EXPECT_THAT(sensor.GetLowerNonCritical().Converted(), testing::AnyOf(3, -HUGE_VAL));
        }
    }

    void Call() {
        for (std::uint16_t i = 0; i < 8; ++i) {
            const std::string error = ErrorOf([&] {
                const auto result = Board().FpgaSpiRead(static_cast<std::uint16_t>(c_register + i));
                EXPECT_TRUE(result.failed != 0 || result.value == ValueOf(i)) << i << ": " << result.value;
            });
            Count(error);
        }
        Take([&] { return Board().GetFwRevision(); }, 245);
        Take([&] { return Board().GetPowerStatus() == bmc::BoardPowerStatus_e::on ? 1 : 0; }, 1);
        const std::uint16_t written = ++m_written;
        ErrorOf([&] {
            if (Board().FpgaSpiWrite(0x1000, written).failed == 0) {
                EXPECT_EQ(Simulator().GetRegister(c_bmc, 0x1000), written);
                ++m_acknowledged;
            }
        });
    }

    template <class Access>
    void Take(const Access& access, double expected) {
        Count(ErrorOf([&] { EXPECT_EQ(access(), expected) << Relay().Describe(); }));
    }

    void Count(const std::string& error) {
        ++(error.empty() ? m_right : m_failed);
        if (!error.empty()) {
            std::this_thread::sleep_for(Milliseconds(1));  // a board that is silent fails at once
        }
    }

    void ExpectAllWellAfterwards() {
        Relay().SetFaults({});
        EXPECT_TRUE(AwaitAnswer(0));
        std::this_thread::sleep_for(Milliseconds(50));  // for what the relay still holds
        // With such short time-outs the controller may seem silent when it only waits for a processor.
        for (int id = 1; id <= c_sensors; ++id) {
            EXPECT_TRUE(Await([&] { return ErrorOf([&] { EXPECT_EQ(Read(0, id), id * 8); }).empty(); }));
        }
        EXPECT_TRUE(
            Await([&] { return ErrorOf([&] { EXPECT_EQ(Board().FpgaSpiWrite(0x1000, 1).failed, 0); }).empty(); }));
        std::map<std::uint16_t, int> executed;
        for (const ExecutedWrite& write : Simulator().GetWrites()) {
            const auto value = static_cast<std::uint16_t>(write.data.at(2) << 8 | write.data.at(3));
            if (value != 1) {
                EXPECT_LE(++executed[value], m_mostExecutions) << "value " << value;
            }
        }
        std::printf("%d values right, %d failed; %d of %d writes acknowledged; %d sessions\n%s\n", m_right.load(),
                    m_failed.load(), m_acknowledged.load(), int{m_written} - 1, m_openings.opened.load(),
                    Relay().Describe().c_str());
    }

    std::atomic<int> m_right{0};
    std::atomic<int> m_failed{0};
    std::atomic<int> m_acknowledged{0};
    std::uint16_t m_written = 1;
    int m_mostExecutions = 1;  ///< of one write; the network may make two of one
};

struct NamedFaults {
    const char* name;
    RelayFaults faults;

    friend void PrintTo(const NamedFaults& kind, std::ostream* out) { *out << kind.name; }
};

class RelayFaultKindTest : public RelayFaultTest, public testing::WithParamInterface<NamedFaults> {};

TEST_P(RelayFaultKindTest, BothWays_NeverAWrongValue) {
    Start();
    m_mostExecutions = GetParam().faults.duplicate > 0 ? 2 : 1;
    Relay().SetFaults(GetParam().faults);
    UseDuring([this] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        EXPECT_TRUE(Await([this] { return m_right > 0; }));
    });
    ExpectAllWellAfterwards();
}

INSTANTIATE_TEST_SUITE_P(Kinds, RelayFaultKindTest,
                         testing::Values(NamedFaults{"Loss", {.drop = 0.05}},
                                         NamedFaults{"Duplicates", {.duplicate = 0.5}},
                                         NamedFaults{"CutShort", {.truncate = 0.05}},
                                         NamedFaults{"Corrupt", {.corrupt = 0.05}},
                                         NamedFaults{"Reordered", {.reorder = 0.1}},
                                         NamedFaults{"Delayed", {.delay = std::chrono::milliseconds(10)}}),
                         [](const auto& kind) { return kind.param.name; });

TEST_F(RelayFaultTest, AnswersLaterThanTheTimeout_AreTakenForNoOthers) {
    Start();
    UseDuring([&] {
        for (int round = 0; round < 10; ++round) {
            Relay().SetFaults(RelayDirection_e::to_client, {.delay = Milliseconds(30 + round)});
            std::this_thread::sleep_for(Milliseconds(80));
            Relay().SetFaults({});
            std::this_thread::sleep_for(Milliseconds(70));
        }
        EXPECT_TRUE(Await([this] { return m_right > 0; }));
    });
    EXPECT_GT(m_openings.opened, 1) << "late answers cost sessions";
    ExpectAllWellAfterwards();
}

/// Everything at random. ZELKOR_FUZZ_SEED and ZELKOR_FUZZ_SECONDS in the environment repeat or prolong it.
class RelayFuzzTest : public RelayFaultTest, public testing::WithParamInterface<int> {
protected:
    static constexpr int c_enough = 20;  ///< values that got through, for the test to mean something

    static unsigned int Environment(const char* name, unsigned int fallback) {
        const char* const text = std::getenv(name);
        return text == nullptr ? fallback : static_cast<unsigned int>(std::stoul(text));
    }

    RelayFaults DrawFaults(std::mt19937& random) const {
        const auto share = [&](double most) {
            return random() % 2 == 0 ? 0.0 : std::uniform_real_distribution<>(0, most)(random);
        };
        RelayFaults faults;
        faults.drop = random() % 16 == 0 ? 1 : share(0.2);
        faults.duplicate = share(0.3);
        faults.truncate = share(0.2);
        faults.corrupt = share(0.2);
        faults.reorder = share(0.3);
        faults.delay = std::chrono::microseconds(random() % 4 == 0 ? random() % 40'000 : 0);
        return faults;
    }
};

TEST_P(RelayFuzzTest, RandomFaultsBothWays_NeverAWrongValue) {
    const unsigned int seed = Environment("ZELKOR_FUZZ_SEED", std::random_device{}());
    const std::chrono::seconds length(Environment("ZELKOR_FUZZ_SECONDS", 5));
    SCOPED_TRACE("ZELKOR_FUZZ_SEED=" + std::to_string(seed));
    std::printf("ZELKOR_FUZZ_SEED=%u\n", seed);
    Start(static_cast<std::uint8_t>(GetParam()));
    m_mostExecutions = 2;
    UseDuring([&] {
        std::mt19937 random(seed);
        const auto end = Clock::now() + length;
        const auto isEnough = [this] { return m_right > c_enough && m_failed > 0; };
        // Longer on a busy machine, and with more time between the faults.
        const auto isLate = [end] { return Clock::now() > end; };
        for (int round = 0; !isLate() || (!isEnough() && Clock::now() < end + std::chrono::seconds(90)); ++round) {
            Relay().SetFaults(RelayDirection_e::to_server, DrawFaults(random));
            Relay().SetFaults(RelayDirection_e::to_client, DrawFaults(random));
            std::this_thread::sleep_for(Milliseconds(random() % 150));
            if (random() % 3 == 0) {
                Relay().SetFaults({});
                std::this_thread::sleep_for(isLate() ? Milliseconds(3000) : Milliseconds(30));
            }
            if (round % 16 == 15) {
                Simulator().Restart();
            }
        }
    });
    Simulator().Restart();  // openings that were lost half-way take up its slots for half a minute
    EXPECT_GT(m_right, c_enough);
    EXPECT_GT(m_failed, 0);
    ExpectAllWellAfterwards();
}

INSTANTIATE_TEST_SUITE_P(CipherSuite, RelayFuzzTest, testing::Values(17, 3),
                         [](const auto& suite) { return std::to_string(suite.param); });

}  // namespace

}  // namespace test
