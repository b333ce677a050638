#include "tests/integration/ipmi/lan_fixture.h"
#include "tests/integration/ipmi/seen_by_library.h"

/// The library forgets the objects of a bridged request, some 2 kB, when the answer cannot be taken apart at all.
/// Nobody but it has them. A session that this project forgets still shows, as that of ipmi_ctx_create.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:fiid_obj_create\nleak:fiid_obj_template\n";
}

namespace {

using namespace test;

/// Packets that the library receives are spoiled on their way.
class LanSpoiled : public LanTest {
protected:
    LanSpoiled() { SeenByLibrary::Reset(); }
    ~LanSpoiled() override { SeenByLibrary::Reset(); }

    /// Reads each of the 60 sensors, whose count is its number, ten times over a way with such faults, and goes on
    /// until half as many were answered: on a busy machine the answers to many come too late. Opens the session anew
    /// after a failure. Whatever is answered must be the sensor's count.
    void ReadAll(const SeenByLibrary::Spoiling& spoiling, Target target = {}) {
        constexpr int c_rounds = 10;
        constexpr int c_readings = c_rounds * c_sensors;
        const SteadyTime end = In(100s);
        auto settings = Settings();
        settings.timeout = 5ms;
        settings.retries = 3;
        const auto transport = Make(settings);
        transport->Open(In(1min));
        SeenByLibrary::SpoilReceivedPackets(spoiling, 1);
        bool isOpen = true;
        int answered = 0;
        for (int i = 0; i < c_readings || (answered < c_readings / 2 && steady_clock::now() < end); ++i) {
            const auto sensor = static_cast<std::uint8_t>(i % c_sensors + 1);
            const Request request = target.IsBridged() ? c_askDeviceId : Request(NetFn_e::sensor, 0x2d, {sensor});
            const auto failure = Failure([&] {
                if (!isOpen) {
                    transport->Open(In(100ms));
                    isOpen = true;
                }
                const Response response = Ask(*transport, request, 20ms, Sending_e::repeated, target);
                EXPECT_EQ(response.completionCode, c_completed);
                EXPECT_EQ(response.data.at(0), target.IsBridged() ? 0x21 : sensor);
                ++answered;
            });
            if (failure) {
                // What is spoiled while a session is opened has no code against it, and may look like any refusal.
                EXPECT_TRUE(failure == TransportFailure_e::noAnswer || failure == TransportFailure_e::broken ||
                            (failure == TransportFailure_e::refused && !isOpen))
                    << m_text;
                EXPECT_LT(m_duration, 120ms + c_tolerance);
                isOpen = false;
            }
        }
        EXPECT_GT(SeenByLibrary::CountSpoiled(), c_rounds);
        EXPECT_GE(answered, c_readings / 2);
        SeenByLibrary::Reset();
    }
};

TEST_F(LanSpoiled, BitsTurned_NeverAWrongValue) {
    ReadAll({.turned = 0.2});
}

TEST_F(LanSpoiled, CutShort_NeverAWrongValue) {
    ReadAll({.truncated = 0.2});
}

TEST_F(LanSpoiled, Repeated_NeverAWrongValue) {
    ReadAll({.repeated = 0.2});
}

TEST_F(LanSpoiled, EverythingAtOnce_NeverAWrongValue) {
    ReadAll({.turned = 0.1, .truncated = 0.1, .repeated = 0.1});
}

TEST_F(LanSpoiled, EverythingAtOnce_BehindABridge_NeverAWrongValue) {
    ReadAll({.turned = 0.05, .truncated = 0.05, .repeated = 0.05}, {0x82, 0});
}

}  // namespace
