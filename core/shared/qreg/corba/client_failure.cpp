#include "qreg/corba/client_failure.h"

#include <omniORB4/minorCode.h>

#include "qreg/corba/connect.h"
#include "qreg/corba/tls_probe.h"
#include "qstd/exception.h"

namespace qreg::corba {

namespace {

constexpr int c_largestPort = 65535;
constexpr std::chrono::milliseconds c_connectLimit{500};

bool IsIpv6(const std::string& host) {
    return host.find(':') != std::string::npos;
}

/// Why no connection could be made: the ORB does not tell.
std::string ConnectFailure(const ServerAddress& server) {
    const Connection connection = Connect(server.host, server.port, c_connectLimit);
    return connection.reason.empty() ? "the connection could not be made" : connection.reason;
}

/// What is wrong with the certificates of the two, or with their TLS; empty when that is not what it is.
std::string TlsFailure(const ServerAddress& server) {
    return server.tls ? ProbeTls(server.host, server.port, *server.tls->identity, server.CertificateName()) : "";
}

bool IsTimeout(const CORBA::SystemException& failure) {
    return CORBA::TIMEOUT::_downcast(&failure) != nullptr ||
           (CORBA::TRANSIENT::_downcast(&failure) != nullptr && failure.minor() == omni::TRANSIENT_CallTimedout);
}

std::string SecondsText(std::chrono::milliseconds time) {
    const std::string fraction = std::to_string(1000 + time.count() % 1000).substr(1);
    const std::size_t last = fraction.find_last_not_of('0');
    return std::to_string(time.count() / 1000) + (last == std::string::npos ? "" : "." + fraction.substr(0, last + 1)) +
           " s";
}

}  // namespace

std::string ServerAddress::ToString() const {
    return (IsIpv6(host) ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string ServerAddress::ToUrl() const {
    constexpr const char* c_letters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.-_:%";
    if (host.empty() || host.find_first_not_of(c_letters) != std::string::npos) {
        throw qstd::Exception("server \"" + host + "\" is neither a host's name nor an address", true);
    }
    if (port < 1 || port > c_largestPort) {
        throw qstd::Exception("port " + std::to_string(port) + " of server " + host + " is not within 1.." +
                                  std::to_string(c_largestPort),
                              true);
    }
    return std::string("corbaloc:") + (tls ? "ssliop" : "iiop") + ":1.2@" + ToString() + "/Registry";
}

std::string FailureText(const ServerAddress& server, std::chrono::milliseconds limit,
                        const CORBA::SystemException& failure) {
    const std::string where = server.ToString();
    if (IsTimeout(failure)) {
        return "the registry server at " + where + " did not answer within " + SecondsText(limit);
    }
    const std::string problem = TlsFailure(server);
    if (!problem.empty()) {
        return "no TLS with the registry server at " + where + ": " + problem;
    }
    const bool isTransient = CORBA::TRANSIENT::_downcast(&failure) != nullptr;
    if (isTransient && (failure.minor() == omni::TRANSIENT_ConnectFailed ||
                        failure.minor() == omni::TRANSIENT_NoUsableProfile)) {  // the latter: a name without address
        return "no registry server at " + where + ": " + ConnectFailure(server);
    }
    if (isTransient || CORBA::COMM_FAILURE::_downcast(&failure) != nullptr) {
        return "the registry server at " + where +
               " closed the connection without an answer: it ended, it has as many clients as it may have, a message "
               "was beyond its limit" +
               (server.tls ? "" : ", or it speaks TLS only");
    }
    if (CORBA::OBJECT_NOT_EXIST::_downcast(&failure) != nullptr) {
        return "the server at " + where + " has no registry";
    }
    const char* const minor = failure.NP_minorString();
    return "the registry server at " + where + " failed: " + failure._name() +
           (minor != nullptr ? " (" + std::string(minor) + ")" : "");
}

}  // namespace qreg::corba
