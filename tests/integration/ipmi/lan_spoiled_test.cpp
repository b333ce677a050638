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

    /// Reads each of the 60 sensors, whose count is its number, @p rounds times over a way with such faults, and opens
    /// the session anew after a failure. Whatever is answered must be the sensor's count.
    /// @return how many were answered
    int ReadAll(const SeenByLibrary::Spoiling& spoiling, int rounds, Target target = {}) {
        auto settings = Settings();
        settings.timeout = 5ms;
        settings.retries = 3;
        const auto transport = Make(settings);
        transport->Open(In(5s));
        SeenByLibrary::SpoilReceivedPackets(spoiling, 1);
        bool isOpen = true;
        int answered = 0;
        for (int i = 0; i < rounds * 60; ++i) {
            const auto sensor = static_cast<std::uint8_t>(i % 60 + 1);
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
        EXPECT_GT(SeenByLibrary::CountSpoiled(), rounds);
        SeenByLibrary::Reset();
        return answered;
    }
};

TEST_F(LanSpoiled, BitsTurned_NeverAWrongValue) {
    EXPECT_GT(ReadAll({.turned = 0.2}, 10), 300);
}

TEST_F(LanSpoiled, CutShort_NeverAWrongValue) {
    EXPECT_GT(ReadAll({.truncated = 0.2}, 10), 300);
}

TEST_F(LanSpoiled, Repeated_NeverAWrongValue) {
    EXPECT_GT(ReadAll({.repeated = 0.2}, 10), 300);
}

TEST_F(LanSpoiled, EverythingAtOnce_NeverAWrongValue) {
    EXPECT_GT(ReadAll({.turned = 0.1, .truncated = 0.1, .repeated = 0.1}, 10), 300);
}

TEST_F(LanSpoiled, EverythingAtOnce_BehindABridge_NeverAWrongValue) {
    EXPECT_GT(ReadAll({.turned = 0.05, .truncated = 0.05, .repeated = 0.05}, 10, {0x82, 0}), 300);
}

}  // namespace
