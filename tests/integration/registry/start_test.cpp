#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "qreg/corba/descriptor_limit.h"
#include "qreg/corba/server.h"
#include "qstd/exception.h"
#include "tests/integration/registry/test_tree.h"
#include "tests/support/log_capture.h"

namespace {

using testing::HasSubstr;

/// A socket that listens on a port of its own.
class Taken {
public:
    Taken() : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), size);
        ::listen(m_socket, 1);
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
    }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    ~Taken() { ::close(m_socket); }
    int GetPort() const { return m_port; }

private:
    const int m_socket;
    int m_port = 0;
};

std::unique_ptr<qreg::Server> Create(const std::string& listen, int port) {
    qreg::ServerSettings settings;
    settings.listen = listen;
    settings.port = port;
    return qreg::corba::CreateServer(settings, test::MakeTestTree(1));
}

std::string FailureOf(const std::string& listen, int port) {
    try {
        Create(listen, port);
    } catch (const qstd::Exception& exception) {
        return exception.what();
    }
    return {};
}

TEST(RegistryServerStart, DescriptorsAreRaisedBeyondTheConnections_SoThatASurplusLeavesSomeToTheProgram) {
    const test::LogCapture log;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlim_t wanted = 1000 + qreg::corba::DescriptorLimit::c_reserve + qreg::corba::DescriptorLimit::c_forSurplus;
    if (before.rlim_max < 2 * wanted) {
        GTEST_SKIP() << "only " << before.rlim_max << " files may be opened here";
    }
    const rlimit few{256, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto server = Create("127.0.0.1", 0);
    server->Serve();
    rlimit raised{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &raised), 0);
    EXPECT_GE(raised.rlim_cur, wanted);
    ::setrlimit(RLIMIT_NOFILE, &before);
}

TEST(RegistryServerStart, ThirtyTimesInOneProcess_OnTheSamePort) {
    const test::LogCapture log;
    int port = 0;
    for (int i = 0; i < 30; ++i) {
        const auto server = Create("127.0.0.1", port);
        if (port != 0) {
            EXPECT_EQ(server->GetPort(), port);
        }
        port = server->GetPort();
        server->Serve();
        server->Refuse();
        server->Stop();
    }
    EXPECT_THAT(log.Messages(), testing::IsEmpty());
}

TEST(RegistryServerStart, ServerThatNeverServed_Stops) {
    const auto server = Create("127.0.0.1", 0);
    EXPECT_GT(server->GetPort(), 0);
}

TEST(RegistryServerStart, PortInUse_IsToldWithAddressPortAndReason) {
    const Taken taken;
    const std::string port = std::to_string(taken.GetPort());
    EXPECT_EQ(FailureOf("127.0.0.1", taken.GetPort()),
              "Cannot listen on 127.0.0.1:" + port + ": Address already in use");
    EXPECT_EQ(FailureOf("", taken.GetPort()), "Cannot listen on *:" + port + ": Address already in use");
    // And a failure leaves nothing behind.
    EXPECT_GT(Create("127.0.0.1", 0)->GetPort(), 0);
}

TEST(RegistryServerStart, AddressOfAnotherHostOrNoAddress_IsToldToo) {
    EXPECT_EQ(FailureOf("192.0.2.1", 5678), "Cannot listen on 192.0.2.1:5678: Cannot assign requested address");
    EXPECT_EQ(FailureOf("localhost", 5678),
              "Cannot listen on localhost:5678: \"localhost\" is neither an IPv4 nor an IPv6 address");
}

TEST(RegistryServerStart, EveryFormOfAddress_IsListenedOn) {
    for (const std::string listen : {"", "0.0.0.0", "127.0.0.1", "::1", "::"}) {
        const auto server = Create(listen, 0);
        EXPECT_GT(server->GetPort(), 0) << listen;
    }
}

TEST(RegistryServerStart, SecondServerInTheProcess_IsRefusedAndHarmsNotTheFirst) {
    const auto first = Create("127.0.0.1", 0);
    first->Serve();
    EXPECT_EQ(FailureOf("127.0.0.1", 0), "Cannot listen on 127.0.0.1:0: this process already has an ORB");
}

}  // namespace
