#include "qreg/corba/orb.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <unistd.h>

#include <omniORB4/internal/objectAdapter.h>
#include <registry.hh>

#include "qreg/corba/interceptors.h"
#include "qreg/corba/message_guard.h"
#include "qreg/corba/tls_context.h"
#include "qreg/corba/tls_refusals.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "qstd/strings.h"

namespace qreg::corba {

namespace {

constexpr unsigned long c_stackSize = 256UL * 1024;  ///< of the thread of each connection
constexpr std::size_t c_leastOrbMessage = 8192;      ///< what the ORB allows
constexpr std::size_t c_messagesPerMinute = 5;       ///< of the ORB

LimitedLog* g_orbLog = nullptr;

/// What the ORB has to say, which it ends with a newline.
void OnOrbMessage(const char* message) {
    std::string text(message);
    text.erase(text.find_last_not_of('\n') + 1);
    g_orbLog->Warning("Registry server: " + qstd::OneLine(text));
}

/// The ORB reads a variable for each of its options: one of them would open a second port.
void ClearEnvironment() {
    std::vector<std::string> names;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text(*variable);
        if (text.rfind("ORB", 0) == 0 && text.size() > 3 && std::islower(static_cast<unsigned char>(text[3])) != 0) {
            names.push_back(text.substr(0, text.find('=')));
        }
    }
    for (const std::string& name : names) {
        qstd::LogWarning("Variable " + qstd::OneLine(name) + " of the environment is ignored");
        ::unsetenv(name.c_str());
    }
}

/// Where a server with these settings listens, that of the settings themselves first.
std::vector<Endpoint> EndpointsOf(const ServerSettings& settings) {
    const bool isAllTls = settings.tls && !settings.tls->port;
    std::vector<Endpoint> endpoints{
        Endpoint(settings.listen, settings.port, isAllTls ? Transport_e::tls : Transport_e::tcp)};
    if (settings.tls && settings.tls->port) {
        endpoints.emplace_back(settings.tls->listen, *settings.tls->port, Transport_e::tls);
    }
    return endpoints;
}

/// The port that the ORB listens on with that transport; 0 when there is none.
int PortOf(Transport_e transport) {
    const std::string prefix = Endpoint::PrefixOf(transport);
    const omni::orbServer::EndpointList& addresses = omni::omniObjAdapter::listMyEndpoints();
    for (CORBA::ULong i = 0; i < addresses.length(); ++i) {
        const std::string address(addresses[i]);
        if (address.rfind(prefix, 0) == 0) {
            return std::stoi(address.substr(address.rfind(':') + 1));
        }
    }
    return 0;
}

}  // namespace

Orb::Orb(const ServerSettings& settings) : m_log(c_messagesPerMinute) {
    ClearEnvironment();
    const std::vector<Endpoint> endpoints = EndpointsOf(settings);
    if (settings.tls) {
        UseIdentity(settings.tls->identity);
        TellTlsRefusals(&m_log);
    }
    Initialise(settings, endpoints);
    try {
        Listen();
    } catch (const CORBA::SystemException& exception) {
        Stop();
        // Somebody may have taken the port since the endpoint's own look.
        EndpointsOf(settings);
        const char* const minor = exception.NP_minorString();
        throw qstd::Exception(endpoints.back().Refusal(minor != nullptr ? minor : exception._name()), true);
    }
}

void Orb::Initialise(const ServerSettings& settings, const std::vector<Endpoint>& endpoints) {
    const std::string message = std::to_string(std::max(settings.maxMessage, c_leastOrbMessage));
    const std::string callTimeOut = std::to_string(c_callTimeOut.count());
    // The ORB counts the rounds in which it looks for idle connections. The first one may come at once, so it is one
    // more than there are in the time.
    const long long idleSeconds = std::max<long long>(settings.idleTime.count(), 1);
    const long long scanSeconds = std::min<long long>(idleSeconds, 5);
    const std::string idle = std::to_string(idleSeconds + scanSeconds);
    const std::string scan = std::to_string(scanSeconds);
    const std::string transports = std::string("* ") + (!settings.tls          ? "tcp"
                                                        : endpoints.size() > 1 ? "tcp,ssl"
                                                                               : "ssl");
    // Where the ORB offers a choice that this server's safety or speed rests upon, it is made here.
    const char* options[][2] = {
        {"endPoint", endpoints.front().GetText().c_str()},
        {"traceLevel", "0"},
        // The log has them already; and the ORB takes the time in a way that is not for several threads.
        {"traceTime", "0"},
        {"traceThreadId", "0"},
        // A thread for each connection, so that a poll that waits holds up nobody else; and only one, because two that
        // work on messages of one connection crash the ORB (two requests with one id, the second in fragments).
        {"threadPerConnectionPolicy", "1"},
        {"maxServerThreadPerConnection", "1"},
        {"idleThreadTimeout", "5"},
        // How often the thread that accepts looks around when nothing happens, in microseconds.
        {"connectionWatchPeriod", "1000000"},
        // A message that does not get on, either way, ends its connection; so does a while without any.
        {"serverCallTimeOutPeriod", callTimeOut.c_str()},
        {"inConScanPeriod", idle.c_str()},
        {"scanGranularity", scan.c_str()},
        {"giopMaxMsgSize", message.c_str()},
        // Texts pass as they are: UTF-8 as the native set makes every request of a client without it fail.
        {"nativeCharCodeSet", "ISO-8859-1"},
        {"supportCurrent", "0"},
        {"acceptBiDirectionalGIOP", "0"},
        {"offerBiDirectionalGIOP", "0"},
        {"supportBootstrapAgent", "0"},
        {"serverTransportRule", transports.c_str()},
        // A handshake that does not get on.
        {"sslAcceptTimeOut", callTimeOut.c_str()},
        // Callbacks go in clear.
        {"clientTransportRule", "* tcp"},
        // Callbacks: no request but the one that is meant.
        {"verifyObjectExistsAndType", "0"},
        {endpoints.size() > 1 ? "endPoint" : nullptr, endpoints.back().GetText().c_str()},  // or the end
        {nullptr, nullptr},
    };
    omni_thread::stacksize(c_stackSize);
    std::array<std::string, 3> words{"zelkor", "-ORBconfigFile", "/dev/null"};
    std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
    int count = static_cast<int>(words.size());
    CORBA::ORB_var orb = CORBA::ORB_init(count, arguments.data(), "omniORB4", options);
    if (count != 1) {
        // It did not look at its arguments.
        throw qstd::Exception(endpoints.front().Refusal("this process already has an ORB"), true);
    }
    m_orb = orb._retn();
    g_orbLog = &m_log;
    omniORB::setLogFunction(OnOrbMessage);
}

void Orb::Listen() {
    InstallMessageGuards();
    InstallInterceptors(m_descriptors, m_log);
    const CORBA::Object_var object = m_orb->resolve_initial_references("omniINSPOA");
    m_adapter = PortableServer::POA::_narrow(object);
    const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(c_objectKey);
    const CORBA::Object_var reference = m_adapter->create_reference_with_id(id.in(), ::reg::Registry_1_1::_PD_repoId);
    m_tlsPort = PortOf(Transport_e::tls);
    for (const int port : {PortOf(Transport_e::tcp), m_tlsPort}) {
        if (port != 0) {
            m_ports.push_back(port);
        }
    }
    omniORB::traceLevel = 1;
}

void Orb::Serve(PortableServer::Servant servant, std::size_t connections) {
    m_descriptors.Begin(connections);
    const PortableServer::ObjectId_var id = PortableServer::string_to_ObjectId(c_objectKey);
    m_adapter->activate_object_with_id(id.in(), servant);
    const PortableServer::POAManager_var manager = m_adapter->the_POAManager();
    manager->activate();
}

void Orb::Stop() noexcept {
    if (CORBA::is_nil(m_orb)) {
        return;
    }
    for (const int port : m_ports) {
        m_descriptors.ShutDown(port);
    }
    try {
        m_adapter = PortableServer::POA::_nil();
        m_orb->destroy();
    } catch (const CORBA::Exception& exception) {
        qstd::LogError(std::string("The registry server did not stop in order: ") + exception._name());
    }
    m_orb = CORBA::ORB::_nil();
    m_log.Flush();
    omniORB::setLogFunction(nullptr);
    TellTlsRefusals(nullptr);
}

}  // namespace qreg::corba
