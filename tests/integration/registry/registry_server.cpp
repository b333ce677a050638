// A registry server on the tests' tree, in a process of its own: calls within one process pass by the sockets and by
// the checks that stand before a request. Prints its port, then that for TLS. Refuses requests after SIGUSR1, reads the
// files of TLS anew at SIGHUP, ends after SIGTERM.
//
//     registry_server [NAME=VALUE]...    listen port push connections maxMessage idle read write writer leaves wait
//     queue tls=FOLDER with server.pem, server.key, ca.pem, and server.crl if there is one; tlsPort: its own port

#include <sys/prctl.h>

#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include "qreg/corba/server.h"
#include "qreg/tls/identity.h"
#include "qreg/tls/subject.h"
#include "qstd/log.h"
#include "tests/integration/registry/test_tree.h"
#include "tests/support/file.h"

#if defined(__SANITIZE_ADDRESS__)
/// A defect of omniORB 4.2.5: of a connection that ends it forgets the messages that wait, behind another one, for
/// their last fragment. A proper client leaves none.
extern "C" const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "leak:omni::giopStrand::acquireServer";
}
#endif

namespace {

/// What stands behind the names on the command line.
class Words {
public:
    Words(int count, char** words) {
        for (int i = 1; i < count; ++i) {
            const std::string word(words[i]);
            m_words[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        }
    }

    std::string Text(const std::string& name, const std::string& fallback = {}) const {
        const auto found = m_words.find(name);
        return found == m_words.end() ? fallback : found->second;
    }

    std::size_t Number(const std::string& name, std::size_t fallback) const {
        return std::stoul(Text(name, std::to_string(fallback)));
    }

private:
    std::map<std::string, std::string> m_words;
};

/// @param folder with a slash at its end
std::shared_ptr<const qreg::tls::Identity> ReadIdentity(const std::string& folder) {
    return std::make_shared<qreg::tls::Identity>(
        qreg::tls::Side_e::server,
        qreg::tls::IdentityFiles{.certificate = folder + "server.pem",
                                 .key = folder + "server.key",
                                 .ca = folder + "ca.pem",
                                 .crl = test::Exists(folder + "server.crl") ? folder + "server.crl" : ""});
}

qreg::ServerSettings ToSettings(const Words& words) {
    qreg::ServerSettings settings;
    settings.product = "registry_server 1.0";
    settings.listen = words.Text("listen", "127.0.0.1");
    settings.port = static_cast<int>(words.Number("port", 0));
    settings.push = words.Number("push", 0) != 0;
    settings.connections = words.Number("connections", settings.connections);
    settings.maxMessage = words.Number("maxMessage", settings.maxMessage);
    settings.idleTime = std::chrono::seconds(words.Number("idle", 60));
    settings.subscriptions.wait = std::chrono::milliseconds(words.Number("wait", 20000));
    settings.subscriptions.queue = words.Number("queue", settings.subscriptions.queue);
    if (!words.Text("write").empty()) {
        settings.mayWrite.Add(words.Text("write"));
    }
    if (!words.Text("read").empty()) {
        settings.mayRead.Add(words.Text("read"));
    }
    if (!words.Text("writer").empty()) {
        settings.mayWrite.Add("", qreg::tls::CanonicalSubject(words.Text("writer")));
    }
    const std::string folder = words.Text("tls") + "/";
    if (folder != "/") {
        qreg::TlsSettings tls;
        tls.identity = ReadIdentity(folder);
        if (!words.Text("tlsPort").empty()) {
            tls.port = static_cast<int>(words.Number("tlsPort", 0));
        }
        tls.listen = settings.listen;
        settings.tls = tls;
    }
    return settings;
}

void Run(const Words& words, const sigset_t& signals) {
    const auto root = test::MakeTestTree(words.Number("leaves", 700));
    const auto server = qreg::corba::CreateServer(ToSettings(words), root);
    server->Serve();
    std::cout << server->GetPort() << "\ntls " << server->GetTlsPort() << std::endl;
    int signal = 0;
    while (sigwait(&signals, &signal) == 0 && signal != SIGTERM) {
        if (signal == SIGHUP) {
            server->RenewTls(*ReadIdentity(words.Text("tls") + "/"));
            std::cout << "renewed" << std::endl;
        } else {
            server->Refuse();
            std::cout << "refusing" << std::endl;
        }
    }
    const auto begin = std::chrono::steady_clock::now();
    server->Stop();
    std::cout << "stopped after "
              << std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count()
              << " ms" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    qstd::Log::GetInstance().OpenStandardError();
    try {
        Run(Words(argc, argv), signals);
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << '\n';
        return 1;
    }
}
