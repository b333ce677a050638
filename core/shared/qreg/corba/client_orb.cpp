#include "qreg/corba/client_orb.h"

#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qreg/corba/tls_context.h"
#include "qreg/corba/tls_probe.h"
#include "qstd/exception.h"

namespace qreg::corba {

namespace {

std::mutex g_mutex;  // guards all below, and the making and ending of the ORB
int g_holds = 0;
std::optional<ClientTls> g_tls;  // of the ORB, with the name that is looked for

/// Every option that matters to a client. They win over the environment and configuration files.
const char* g_options[][2] = {
    {"clientTransportRule", ""},             // nothing may come between; made to fit below
    {"traceLevel", "0"},                     // what went wrong is in the exceptions
    {"nativeCharCodeSet", "ISO-8859-1"},     // 8-bit clean: UTF-8 passes as it is
    {"clientCallTimeOutPeriod", "0"},        // the time limits are those of the objects
    {"clientConnectTimeOutPeriod", "0"},     // connecting counts as part of the request
    {"verifyObjectExistsAndType", "0"},      // saves a request: the first real one tells as well
    {"maxGIOPVersion", "1.2"},               //
    {"giopMaxMsgSize", "16777216"},          // of an answer; servers keep to less
    {"maxGIOPConnectionPerServer", "64"},    // clients of several threads do not wait for each other
    {"oneCallPerConnection", "1"},           // a long poll holds up nobody
    {"outConScanPeriod", "0"},               // no thread that looks for idle connections
    {"resolveNamesForTransportRules", "1"},  // a name with several addresses: each is tried
    {"acceptBiDirectionalGIOP", "0"},        // nobody calls us
    {"offerBiDirectionalGIOP", "0"},         //
    {nullptr, nullptr},
};

void ForgetEnvironment() {
    std::vector<std::string> names;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (text.starts_with("ORB")) {
            names.emplace_back(text.substr(0, text.find('=')));
        }
    }
    for (const std::string& name : names) {
        ::unsetenv(name.c_str());
    }
}

}  // namespace

ClientOrb::ClientOrb(const ServerAddress& server) {
    std::optional<ClientTls> tls = server.tls;
    if (tls) {
        tls->serverName = server.CertificateName();
        ProveName(tls->serverName);
    }
    const std::lock_guard lock(g_mutex);
    if (g_holds == 0) {
        ForgetEnvironment();
        if (tls) {
            UseIdentity(tls->identity, [name = tls->serverName](ssl_ctx_st* context) { DemandName(context, name); });
        }
        g_tls = tls;
    } else if (g_tls != tls) {
        throw qstd::Exception("all clients of a process speak TLS in the same way to one server");
    }
    g_options[0][1] = tls ? "* ssl" : "* tcp";
    // Which configuration file to read can only be said like this; the program's own arguments are never shown.
    std::string program = "client", option = "-ORBconfigFile", file = "/dev/null";
    std::vector<char*> words{program.data(), option.data(), file.data(), nullptr};
    int count = 3;
    m_orb = CORBA::ORB_init(count, words.data(), "omniORB4", g_options);
    ++g_holds;
}

ClientOrb::~ClientOrb() {
    const std::lock_guard lock(g_mutex);
    if (--g_holds == 0) {
        try {
            m_orb->destroy();
        } catch (const CORBA::Exception&) {
            // Somebody ended it already.
        }
    }
}

}  // namespace qreg::corba
