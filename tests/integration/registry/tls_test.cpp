// Clients and servers that speak TLS, each in a process of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qreg/corba/client.h"
#include "tests/integration/registry/server_process.h"
#include "tests/support/expect_text.h"
#include "tests/support/tls/test_authority.h"

namespace {

using qreg::corba::Client;
using qreg::corba::ClientTls;
using qreg::corba::NoServer;
using qreg::tls::Identity;
using qreg::tls::IdentityFiles;
using qreg::tls::Side_e;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::chrono::seconds c_tlsTimeout(20);

/// Listens, and says the same few bytes to everybody who has said something.
class RudeServer {
public:
    explicit RudeServer(std::string answer) : m_answer(std::move(answer)) {
        socklen_t size = sizeof m_address;
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&m_address), size), 0);
        EXPECT_EQ(::listen(m_socket, 5), 0);
        EXPECT_EQ(::getsockname(m_socket, reinterpret_cast<sockaddr*>(&m_address), &size), 0);
        m_thread = std::thread([this] {
            for (int client = 0; (client = ::accept(m_socket, nullptr, nullptr)) >= 0; ::close(client)) {
                char heard[4096];
                if (::read(client, heard, sizeof heard) > 0) {
                    EXPECT_EQ(::write(client, m_answer.data(), m_answer.size()), std::ssize(m_answer));
                }
            }
        });
    }
    ~RudeServer() {
        ::shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        ::close(m_socket);
    }
    int GetPort() const { return ntohs(m_address.sin_port); }

private:
    const std::string m_answer;
    const int m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{};
    std::thread m_thread;
};

/// Certificates of a server, of a person who may write, "operator", and of one who may not, "reader"; made once.
class RegistryTls : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new test::TempFolder;
        s_authority = new test::TestAuthority(s_folder->Path());
        s_authority->Issue("server", {.usage = "serverAuth"});
        s_authority->Issue("operator", {.subject = "/O=Lab/CN=operator", .names = "", .usage = "clientAuth"});
        s_authority->Issue("reader", {.subject = "/O=Lab/CN=reader", .names = "", .usage = "clientAuth"});
    }
    static void TearDownTestSuite() {
        delete s_authority;
        delete s_folder;
    }

    static std::string Path(const std::string& name) { return s_folder->Path(name); }

    void Start(std::vector<std::string> settings = {}) {
        settings.insert(settings.begin(), {ZELKOR_BIN "/registry_server", "tls=" + s_folder->Path()});
        m_server = std::make_unique<test::ServerProcess>(settings);
        const std::string mark = "tls ";
        while (m_server->Output().find(mark) == std::string::npos || m_server->Output().back() != '\n') {
            ASSERT_EQ(m_server->Get().Wait(std::chrono::milliseconds(5)), std::nullopt);
        }
        m_tlsPort = std::stoi(m_server->Output().substr(m_server->Output().find(mark) + mark.size()));
    }

    /// Has the server read its files anew.
    void Renew() {
        m_server->Get().Signal(SIGHUP);
        while (!m_server->Output().ends_with("renewed\n")) {
            ASSERT_EQ(m_server->Get().Wait(std::chrono::milliseconds(5)), std::nullopt);
        }
    }

    void Stop() {
        m_server->Get().Signal(SIGTERM);
        EXPECT_EQ(m_server->Get().Wait(), 0) << m_server->Errors();
    }

    /// @param name of the certificate, empty: none
    static ClientTls Tls(const std::string& name, const std::string& serverName = {}, const std::string& ca = "ca") {
        const bool isThere = !name.empty();
        // A client would not take a certificate that is for servers only; one that does not look would.
        const Side_e side = name == "machine" ? Side_e::server : Side_e::client;
        return {std::make_shared<Identity>(side, IdentityFiles{.certificate = isThere ? Path(name + ".pem") : "",
                                                               .key = isThere ? Path(name + ".key") : "",
                                                               .ca = Path(ca + ".pem")}),
                serverName};
    }

    std::unique_ptr<Client> Connect(const ClientTls& tls, const std::string& host = "127.0.0.1") const {
        return std::make_unique<Client>(host, m_tlsPort, c_tlsTimeout, tls);
    }

    static std::size_t Count(const std::string& part, const std::string& text) {
        std::size_t count = 0;
        for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
            ++count;
        }
        return count;
    }

    /// Why a client gets no answer; empty when it does.
    std::string Failure(const ClientTls& tls, const std::string& host = "127.0.0.1") const {
        try {
            Connect(tls, host)->Hello();
        } catch (const NoServer& error) {
            return error.what();
        }
        return {};
    }
    std::string NoTls(const std::string& reason, const std::string& host = "127.0.0.1") const {
        return "no TLS with the registry server at " + host + ":" + std::to_string(m_tlsPort) + ": " + reason;
    }

    test::Result Tool(std::vector<std::string> words, const std::string& name, const std::string& host = "127.0.0.1",
                      const std::map<std::string, std::string>& environment = {}) {
        words.insert(words.begin(), {ZELKOR_BIN "/zelkor-regctl", "--server", host + ":" + std::to_string(m_tlsPort),
                                     "--tls", "--ca", Path("ca.pem")});
        if (!name.empty()) {
            words.insert(words.end(), {"--certificate", Path(name + ".pem"), "--key", Path(name + ".key")});
        }
        return test::RunProgram(words, environment);
    }

    static test::TempFolder* s_folder;
    static test::TestAuthority* s_authority;
    std::unique_ptr<test::ServerProcess> m_server;
    int m_tlsPort = 0;
};

test::TempFolder* RegistryTls::s_folder = nullptr;
test::TestAuthority* RegistryTls::s_authority = nullptr;

TEST_F(RegistryTls, Client_ReadsWritesAndSubscribesAsInClear) {
    Start();
    EXPECT_EQ(m_tlsPort, m_server->GetPort()) << "nothing is in clear";
    const auto client = Connect(Tls("operator"));
    EXPECT_EQ(client->Hello().product, "registry_server 1.0");
    client->Set("knobs/speed", 4000.0);
    EXPECT_EQ(client->Get("knobs/speed"), qnode::Value(4000.0));
    int nodes = 0;
    client->Subtree("", 10, [&](const auto&) { ++nodes; });
    EXPECT_GT(nodes, 700);
    const qreg::Lease lease = client->Subscribe({});
    EXPECT_TRUE(client->Poll(lease.id, 0, 10, std::chrono::milliseconds(10)).events.empty());
    Stop();
    EXPECT_THAT(m_server->Errors(),
                HasSubstr("INFO     Registry: knobs/speed set from 100 to 4000 by 127.0.0.1 (CN=operator,O=Lab)\n"));
}

TEST_F(RegistryTls, PortOfItsOwn_LeavesTheOtherInClear) {
    Start({"tlsPort=0"});
    EXPECT_NE(m_tlsPort, m_server->GetPort());
    {
        Client client("127.0.0.1", m_server->GetPort(), c_tlsTimeout);
        EXPECT_EQ(client.Hello().major, 1);
    }
    EXPECT_EQ(Failure(Tls("operator")), "");
    Stop();
}

TEST_F(RegistryTls, Writers_AreKnownByTheSubjectOfTheirCertificate) {
    Start({"tlsPort=0", "writer=CN=operator, O=Lab"});
    Connect(Tls("operator"))->Set("knobs/speed", 4000.0);
    {
        const auto reader = Connect(Tls("reader"));
        EXPECT_EQ(reader->Get("knobs/speed"), qnode::Value(4000.0));
        EXPECT_THROW(reader->Set("knobs/speed", 5000.0), qreg::RegistryError);
    }
    {
        Client stranger("127.0.0.1", m_server->GetPort(), c_tlsTimeout);
        EXPECT_THROW(stranger.Set("knobs/speed", 5000.0), qreg::RegistryError) << "no certificate in clear";
        EXPECT_EQ(stranger.Get("knobs/speed"), qnode::Value(4000.0));
    }
    Stop();
    EXPECT_THAT(m_server->Errors(), HasSubstr("WARNING  Refused to write knobs/speed = 5000 for 127.0.0.1 "
                                              "(CN=reader,O=Lab), which may not write\n"));
    EXPECT_THAT(m_server->Errors(),
                HasSubstr("Refused to write knobs/speed = 5000 for 127.0.0.1, which may not write"));
}

TEST_F(RegistryTls, ClientWithoutAGoodCertificate_IsRefusedAndBothSidesSayWhy) {
    const test::TestAuthority stranger(s_folder->Path(), "other");
    stranger.Issue("alien", {.subject = "/O=Lab/CN=operator"});
    s_authority->Issue("machine", {.subject = "/CN=machine", .usage = "serverAuth"});
    s_authority->Issue("revoked", {.subject = "/CN=revoked"});
    s_authority->Revoke("revoked");
    s_authority->WriteRevocations("server");
    const std::string refused = "the server refuses this client's certificate: ";
    for (const auto& [name, client, server] : std::vector<std::array<std::string, 3>>{
             {"", "the server requires a certificate, and this client has none", ": peer did not return a certificate"},
             {"alien", refused + "unknown CA", " (CN=operator,O=Lab): unable to get local issuer certificate"},
             {"machine", refused + "unsupported certificate", " (CN=machine): unsuitable certificate purpose"},
             {"revoked", refused + "certificate revoked", " (CN=revoked): certificate revoked"}}) {
        const std::string line = "WARNING  Refused a TLS connection from 127.0.0.1" + server + "\n";
        Start();
        EXPECT_EQ(Failure(Tls(name)), NoTls(client));
        Stop();
        const std::size_t told = Count(line, m_server->Errors());
        EXPECT_GT(told, 0U) << m_server->Errors();
        Start();
        Renew();
        EXPECT_EQ(Failure(Tls(name)), NoTls(client));
        Stop();
        EXPECT_EQ(Count(line, m_server->Errors()), told) << "each attempt is told of after a renewal, too";
    }
    Start();
    EXPECT_EQ(Failure(Tls("operator")), "");
    Stop();
    std::filesystem::remove(Path("server.crl"));
    EXPECT_EQ(m_server->Errors(), "");
}

TEST_F(RegistryTls, ServerThatIsNotTheOneMeant_IsRefusedByTheClient) {
    const test::TestAuthority stranger(s_folder->Path(), "other");
    Start();
    EXPECT_EQ(Failure(Tls("operator", "", "other")),
              NoTls("the server's certificate is not trusted: unable to get local issuer certificate "
                    "(CN=server,O=Lab)"));
    EXPECT_EQ(Failure(Tls("operator", "example.org")),
              NoTls("the server's certificate is not for example.org (CN=server,O=Lab)"));
    EXPECT_EQ(Failure(Tls("operator", "127.0.0.2")),
              NoTls("the server's certificate is not for 127.0.0.2 (CN=server,O=Lab)"));
    EXPECT_EQ(Failure(Tls("operator", "localhost")), "");
    EXPECT_EQ(Failure(Tls("operator"), "localhost"), "");
    Stop();
}

TEST_F(RegistryTls, ClientsOfOneProcess_SpeakInOneWay) {
    Start({"tlsPort=0"});
    const ClientTls tls = Tls("operator");
    const auto client = Connect(tls);
    const auto second = Connect(tls);
    EXPECT_EQ(second->Hello().major, 1);
    const std::string refusal = "all clients of a process speak TLS in the same way to one server";
    EXPECT_EQ(test::TextOf([&] { Connect(Tls("operator")); }), refusal);
    EXPECT_EQ(test::TextOf([&] { Client("127.0.0.1", m_server->GetPort(), c_tlsTimeout); }), refusal);
    Stop();
}

TEST_F(RegistryTls, Name_MustBeOneThatACertificateCanBeFor) {
    for (const char* name : {"not a name", "a:b"}) {
        EXPECT_THAT(test::TextOf([&] { Client("127.0.0.1", 1, c_tlsTimeout, Tls("operator", name)); }),
                    StartsWith(std::string("a certificate cannot be for \"") + name));
    }
}

TEST_F(RegistryTls, InClearToTlsAndTlsToClear_FailInWords) {
    Start({"tlsPort=0"});
    const int clear = m_server->GetPort();
    EXPECT_THAT(test::TextOf([&] { Client("127.0.0.1", m_tlsPort, c_tlsTimeout).Hello(); }),
                HasSubstr("or it speaks TLS only"));
    const int tls = std::exchange(m_tlsPort, clear);
    EXPECT_THAT(Failure(Tls("operator")), StartsWith(NoTls("")));
    m_tlsPort = tls;
    EXPECT_EQ(Failure(Tls("operator")), "");
    Stop();
}

constexpr const char* c_ended =
    "the server ended the connection in the handshake: it has as many clients as it may have, or it speaks something "
    "else";

TEST_F(RegistryTls, ServerThatSpeaksSomethingElse_IsNoServer) {
    for (const auto& [answer, reason] : std::vector<std::pair<std::string, std::string>>{
             {"", c_ended},
             {"220 mail\r\n", "the server speaks no TLS 1.2 or later there (wrong version number)"},
             {std::string("\x15\x03\x03\0\x02\x02\x28", 7), "the handshake failed (sslv3 alert handshake failure)"}}) {
        const RudeServer server(answer);
        m_tlsPort = server.GetPort();
        EXPECT_EQ(Failure(Tls("operator")), NoTls(reason));
    }
}

TEST_F(RegistryTls, ServerThatSaysFarewellInTheHandshake_IsNoServer) {
    const RudeServer server(std::string("\x15\x03\x03\0\x02\x01\0", 7));
    m_tlsPort = server.GetPort();
    // The ORB does not expect that, and forgets the connection: so in a process of its own, which nobody asks for
    // leaks.
    const test::Result result = Tool({"ls"}, "operator", "127.0.0.1", {{"ASAN_OPTIONS", "detect_leaks=0"}});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "zelkor-regctl: " + NoTls(c_ended) + "\n");
}

TEST_F(RegistryTls, Tool_SpeaksTlsAndSaysWhyNot) {
    Start({"writer=CN=operator,O=Lab"});
    EXPECT_EQ(Tool({"set", "knobs/speed", "4000"}, "operator").status, 0);
    EXPECT_EQ(Tool({"get", "knobs/speed"}, "reader").output, "4000\n");
    test::Result result = Tool({"set", "knobs/speed", "5000"}, "reader");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "Clients at 127.0.0.1 (CN=reader,O=Lab) may not write\n");
    result = Tool({"ls"}, "");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error,
              "zelkor-regctl: " + NoTls("the server requires a certificate, and this client has none") + "\n");
    result = Tool({"ls", "--server-name", "example.org"}, "operator");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error,
              "zelkor-regctl: " + NoTls("the server's certificate is not for example.org (CN=server,O=Lab)") + "\n");
    result = Tool({"ls", "--key", Path("none.key"), "--certificate", Path("reader.pem")}, "");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "zelkor-regctl: key " + Path("none.key") + ": cannot open: No such file or directory\n");
    result = Tool({"watch", "--timeout", "0.2"}, "reader");
    EXPECT_EQ(result.status, 0) << result.error;
    Stop();
}

}  // namespace
