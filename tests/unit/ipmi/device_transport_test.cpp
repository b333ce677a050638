#include "bmc/ipmi/device_transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "tests/unit/ipmi/fake_ipmi_driver.h"

namespace {

using namespace bmc::ipmi;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
using test::FakeIpmiDriver;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const Request c_getReading(NetFn_e::sensor, 0x2d, {0x07}, 1);

class DeviceTransportTest : public testing::Test {
protected:
    DeviceTransportTest() {
        ControllerSettings settings;
        settings.device = "/dev/ipmi0";
        settings.timeout = 250ms;
        settings.retries = 3;
        auto driver = std::make_unique<FakeIpmiDriver>();
        m_driver = driver.get();
        m_transport = std::make_unique<DeviceTransport>(settings, std::move(driver));
    }

    static SteadyTime Soon() { return steady_clock::now() + 200ms; }
    static SteadyTime Late() { return steady_clock::now() + 1min; }

    Response Exchange(const Request& request = c_getReading, SteadyTime deadline = Late(), Target target = {},
                      Sending_e sending = Sending_e::repeated) {
        return m_transport->Exchange(target, request, sending, deadline);
    }

    /// How @p action failed; nothing when it did not.
    template <typename Action>
    std::optional<TransportFailure_e> Failure(Action action) {
        try {
            action();
        } catch (const TransportError& error) {
            m_text = error.what();
            return error.GetFailure();
        }
        return std::nullopt;
    }

    FakeIpmiDriver* m_driver = nullptr;
    std::unique_ptr<DeviceTransport> m_transport;
    std::string m_text;  ///< of the last failure
};

TEST_F(DeviceTransportTest, Opening_AsksForTheDeviceId) {
    m_transport->Open(Late());
    EXPECT_THAT(m_driver->opened, ElementsAre("/dev/ipmi0"));
    EXPECT_EQ(m_driver->opening.netFn, 0x06);
    EXPECT_EQ(m_driver->opening.command, 0x01);
    EXPECT_EQ(m_driver->opening.addressType, IPMI_SYSTEM_INTERFACE_ADDR_TYPE);
}

TEST_F(DeviceTransportTest, Opening_ControllerDoesNotAnswer_Fails) {
    m_driver->answersOpening = false;
    EXPECT_EQ(Failure([&] { m_transport->Open(Soon()); }), TransportFailure_e::noAnswer);
}

TEST_F(DeviceTransportTest, Opening_NoSuchDevice_SaysWhatMayBeMissing) {
    m_driver->openError = ENOENT;
    EXPECT_EQ(Failure([&] { m_transport->Open(Late()); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "/dev/ipmi0: there is no such device; is the kernel module ipmi_devintf loaded?");
}

TEST_F(DeviceTransportTest, Opening_NoPermission_SaysSo) {
    m_driver->openError = EACCES;
    EXPECT_EQ(Failure([&] { m_transport->Open(Late()); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "/dev/ipmi0: no permission to open it");
}

TEST_F(DeviceTransportTest, RequestToTheController_GoesByTheSystemInterface) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00, 0x55, 0xc0}); };
    m_transport->Open(Late());

    const Response response = Exchange();

    EXPECT_EQ(response.completionCode, 0);
    EXPECT_THAT(response.data, ElementsAre(0x55, 0xc0));
    ASSERT_THAT(m_driver->sent, SizeIs(1));
    const auto& sent = m_driver->sent[0];
    EXPECT_EQ(sent.addressType, IPMI_SYSTEM_INTERFACE_ADDR_TYPE);
    EXPECT_EQ(sent.channel, IPMI_BMC_CHANNEL);
    EXPECT_EQ(sent.lun, 1);
    EXPECT_EQ(sent.netFn, 0x04);
    EXPECT_EQ(sent.command, 0x2d);
    EXPECT_THAT(sent.data, ElementsAre(0x07));
}

TEST_F(DeviceTransportTest, RequestToAnother_IsAddressedOnTheBus) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00}); };
    m_transport->Open(Late());
    Exchange(c_getReading, Late(), {0x82, 7});
    ASSERT_THAT(m_driver->sent, SizeIs(1));
    EXPECT_EQ(m_driver->sent[0].addressType, IPMI_IPMB_ADDR_TYPE);
    EXPECT_EQ(m_driver->sent[0].channel, 7);
    EXPECT_EQ(m_driver->sent[0].address, 0x82);
    EXPECT_EQ(m_driver->sent[0].lun, 1);
}

TEST_F(DeviceTransportTest, RequestThatMayBeRepeated_DriverIsToldHowOften) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00}); };
    m_transport->Open(Late());
    Exchange(c_getReading, Late(), {}, Sending_e::repeated);
    EXPECT_EQ(m_driver->sent[0].retries, 3);
    EXPECT_EQ(m_driver->sent[0].retryTime, 250U);
}

TEST_F(DeviceTransportTest, RequestThatMustNotBeRepeated_DriverIsToldSo) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00}); };
    m_transport->Open(Late());
    Exchange(c_getReading, Late(), {}, Sending_e::once);
    EXPECT_EQ(m_driver->sent[0].retries, 0);
    EXPECT_EQ(m_driver->sent[0].retryTime, 1250U) << "the driver may be a second early";
}

TEST_F(DeviceTransportTest, NobodyAtTheAddress_IsAnAnswerWithThatCode) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {c_noAcknowledge}); };
    m_transport->Open(Late());
    const Response response = Exchange(c_getReading, Late(), {0x84, 0});
    EXPECT_EQ(response.completionCode, c_noAcknowledge);
    EXPECT_THAT(response.data, IsEmpty());
}

TEST_F(DeviceTransportTest, DriverGivesUpOnABoardOfTheBus_IsNoAnswer) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {c_timeout}); };
    m_transport->Open(Late());
    EXPECT_EQ(Exchange(c_getReading, Late()).completionCode, c_timeout) << "that of the controller itself is an answer";
    try {
        Exchange(c_getReading, Late(), {0x82, 0});
        FAIL() << "an answer";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.GetFailure(), TransportFailure_e::noAnswer);
    }
}

TEST_F(DeviceTransportTest, BusThatTheDriverDoesNotKnow_IsAnAnswerAsOverTheLan) {
    m_transport->Open(Late());
    m_driver->sendError = EINVAL;
    EXPECT_EQ(Exchange(c_getReading, Late(), {0x82, 5}).completionCode, 0xcc);
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "/dev/ipmi0: Invalid argument");
}

TEST_F(DeviceTransportTest, NoAnswer_FailsAtTheDeadline) {
    m_transport->Open(Late());
    const auto start = steady_clock::now();
    EXPECT_EQ(Failure([&] { Exchange(c_getReading, start + 30ms); }), TransportFailure_e::noAnswer);
    EXPECT_GE(steady_clock::now() - start, 30ms);
    EXPECT_THAT(m_text, HasSubstr("no answer within "));
}

TEST_F(DeviceTransportTest, DeadlineThatHasPassed_SendsNothing) {
    m_transport->Open(Late());
    EXPECT_EQ(Failure([&] { Exchange(c_getReading, steady_clock::now()); }), TransportFailure_e::noAnswer);
    EXPECT_THAT(m_driver->sent, IsEmpty());
}

TEST_F(DeviceTransportTest, LateAnswerToAnEarlierRequest_IsDropped) {
    m_transport->Open(Late());
    EXPECT_EQ(Failure([&] { Exchange(c_getReading, Soon()); }), TransportFailure_e::noAnswer);
    const FakeIpmiDriver::Sent earlier = m_driver->sent[0];

    m_driver->onRequest = [&](const auto& request) {
        m_driver->Answer(earlier, {0x00, 0x11});
        m_driver->Answer(request, {0x00, 0x22});
    };
    EXPECT_THAT(Exchange().data, ElementsAre(0x22));
}

TEST_F(DeviceTransportTest, EventsAndCommands_AreNoAnswers) {
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) {
        m_driver->Put({IPMI_ASYNC_EVENT_RECV_TYPE, request.messageId, 0x05, 0x2d, {0x00, 0x11}});
        m_driver->Put({IPMI_CMD_RECV_TYPE, request.messageId, 0x05, 0x2d, {0x00, 0x12}});
        m_driver->Answer(request, {0x00, 0x22});
    };
    EXPECT_THAT(Exchange().data, ElementsAre(0x22));
}

TEST_F(DeviceTransportTest, AnswerToAnotherCommand_IsNone) {
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) {
        m_driver->Put({IPMI_RESPONSE_RECV_TYPE, request.messageId, 0x05, 0x27, {0x00, 0x11}});
    };
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::broken);
    EXPECT_EQ(m_text, "the answer is one to command 0x04/0x27, not to 0x04/0x2d");
}

TEST_F(DeviceTransportTest, AnswerWithoutCompletionCode_IsNone) {
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {}); };
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::broken);
    EXPECT_EQ(m_text, "the answer has no completion code");
}

TEST_F(DeviceTransportTest, AnswerLongerThanAnyMessage_IsNone) {
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, std::vector<std::uint8_t>(1000, 0)); };
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::broken);
    EXPECT_EQ(m_text, "the answer is longer than 272 bytes");
}

TEST_F(DeviceTransportTest, DriverIsUnloaded_SaysSo) {
    m_transport->Open(Late());
    m_driver->sendError = ENODEV;
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "/dev/ipmi0: the controller's driver is gone");
}

TEST_F(DeviceTransportTest, DriverIsUnloadedDuringARequest_SaysSo) {
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) {
        m_driver->Answer(request, {0x00});
        m_driver->receiveError = ENODEV;
    };
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "/dev/ipmi0: the controller's driver is gone");
}

TEST_F(DeviceTransportTest, InterruptionDuringARequest_EndsIt) {
    m_transport->Open(Late());
    std::thread other;
    m_driver->onRequest = [&](const auto&) { other = std::thread([&] { m_transport->Interrupt(); }); };
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::interrupted);
    other.join();
}

TEST_F(DeviceTransportTest, InterruptionBeforeARequest_EndsTheNextAlone) {
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00}); };
    m_transport->Open(Late());
    m_transport->Interrupt();
    EXPECT_EQ(Failure([&] { Exchange(); }), TransportFailure_e::interrupted);
    EXPECT_THAT(m_driver->sent, IsEmpty());
    EXPECT_EQ(Exchange().completionCode, 0);
}

TEST_F(DeviceTransportTest, OpenedAgain_OldAnswersAreGone) {
    m_transport->Open(Late());
    EXPECT_EQ(Failure([&] { Exchange(c_getReading, Soon()); }), TransportFailure_e::noAnswer);
    m_transport->Open(Late());
    m_driver->onRequest = [&](const auto& request) { m_driver->Answer(request, {0x00, 0x22}); };
    EXPECT_THAT(Exchange().data, ElementsAre(0x22));
}

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

TEST_F(DeviceTransportTest, OpenedAndClosedOften_LeavesNoDescriptor) {
    const auto before = CountDescriptors();
    for (int i = 0; i < 100; ++i) {
        m_transport->Open(Late());
        m_driver->answersOpening = i % 3 != 0;
        static_cast<void>(Failure([&] { m_transport->Open(steady_clock::now()); }));
        m_driver->answersOpening = true;
        m_transport->Close(Late());
    }
    EXPECT_EQ(CountDescriptors(), before);
}

TEST(DeviceTransport, HostWithoutDevice_SaysSo) {
    ControllerSettings settings;
    settings.device = "/dev/null/ipmi0";
    DeviceTransport transport(settings);
    EXPECT_THROW(transport.Open(steady_clock::now() + 1s), TransportError);

    settings.device = "/dev/null";  // a file, but none that speaks IPMI
    DeviceTransport other(settings);
    try {
        other.Open(steady_clock::now() + 1s);
        FAIL() << "opened";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.GetFailure(), TransportFailure_e::system);
        EXPECT_THAT(error.what(), HasSubstr("/dev/null: "));
    }
}

}  // namespace
