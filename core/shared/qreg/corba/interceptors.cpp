#include "qreg/corba/interceptors.h"

#include <cstring>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <omniORB4/CORBA.h>
#include <omniORB4/minorCode.h>
#include <omniORB4/omniInterceptors.h>
#include <omniORB4/sslContext.h>
#include <omniORB4/tcpConnection.h>
// In this order: the last one does not include what it needs.
#include <omniORB4/internal/giopStrand.h>
#include <omniORB4/internal/giopStream.h>

#include <omniORB4/internal/GIOP_S.h>
#include <omniORB4/sslConnection.h>

#include "qreg/corba/endpoint.h"
#include "qreg/tls/subject.h"

namespace qreg::corba {

namespace {

using Interceptors = omni::omniInterceptors;

const DescriptorLimit* g_limit = nullptr;
LimitedLog* g_log = nullptr;
thread_local omni::GIOP_S* t_request = nullptr;

std::string TextOf(const char* text) {
    return text != nullptr ? text : "";
}

/// The socket of a connection, negative for one of a kind that this server does not listen for.
int SocketOf(omni::giopConnection* connection) {
    if (const auto* const tcp = dynamic_cast<omni::tcpConnection*>(connection)) {
        return tcp->handle();
    }
    const auto* const tls = dynamic_cast<omni::sslConnection*>(connection);
    return tls != nullptr ? tls->handle() : -1;
}

/// Before a handshake, if there is one: who has no room costs no more than a connection in clear.
CORBA::Boolean OnAccept(Interceptors::serverAcceptConnection_T::info_T& info) {
    if (!g_limit->HasBegun()) {
        // The service is still starting. Nothing to tell of: whoever comes too early comes again.
        info.reject = 1;
        info.why = "not serving yet";
        return 1;
    }
    const int socket = SocketOf(info.strand.connection);
    if (socket < 0 || !g_limit->IsRoomFor(socket)) {
        g_log->Warning("Refused a connection from " + AddressIn(TextOf(info.peeraddress())) +
                       ": there are as many connections as the registry server may have");
        info.reject = 1;
        info.why = "too many connections";
        return 1;
    }
    const unsigned int milliseconds = c_callTimeOut.count();
    ::setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &milliseconds, sizeof milliseconds);
    return 1;
}

CORBA::Boolean OnRequest(Interceptors::serverReceiveRequest_T::info_T& info) {
    static const std::size_t c_size = std::strlen(c_objectKey);
    if (info.giop_s.keysize() != static_cast<int>(c_size) || std::memcmp(info.giop_s.key(), c_objectKey, c_size) != 0) {
        OMNIORB_THROW(OBJECT_NOT_EXIST, omni::OBJECT_NOT_EXIST_NoMatch, CORBA::COMPLETED_NO);
    }
    t_request = &info.giop_s;
    return 1;
}

/// The kernel watches over replies that nobody takes (OnAccept): the ORB's own watch costs each reply two calls into
/// it.
CORBA::Boolean OnReply(Interceptors::serverSendReply_T::info_T& info) {
    info.giop_s.clearDeadline();
    return 1;
}

}  // namespace

void InstallInterceptors(const DescriptorLimit& limit, LimitedLog& log) {
    g_limit = &limit;
    g_log = &log;
    Interceptors* const interceptors = omniORB::getInterceptors();
    interceptors->serverAcceptConnection.add(OnAccept);
    interceptors->serverReceiveRequest.add(OnRequest);
    interceptors->serverSendReply.add(OnReply);
}

Peer CurrentPeer() {
    Interceptors::serverReceiveRequest_T::info_T info(*t_request);
    const std::string endpoint = TextOf(info.peeraddress());
    Peer peer{AddressIn(endpoint)};
    if (endpoint.rfind(Endpoint::PrefixOf(Transport_e::tls), 0) == 0) {
        peer.isEncrypted = true;
        // Null unless the certificate was proved.
        const auto* const certificate = static_cast<const X509*>(info.peerdetails());
        peer.subject = certificate != nullptr ? tls::SubjectOf(*certificate) : "";
    }
    return peer;
}

std::string AddressIn(const std::string& endpoint) {
    static constexpr const char* c_mapped = "::ffff:";
    const std::size_t protocol = endpoint.find(':', endpoint.find(':') + 1);
    const std::size_t port = endpoint.rfind(':');
    if (protocol == std::string::npos || port <= protocol) {
        return endpoint;
    }
    std::string address = endpoint.substr(protocol + 1, port - protocol - 1);
    if (address.size() > 1 && address.front() == '[' && address.back() == ']') {
        address = address.substr(1, address.size() - 2);
    }
    if (address.rfind(c_mapped, 0) == 0 && address.find('.') != std::string::npos) {
        address.erase(0, std::strlen(c_mapped));
    }
    return address;
}

}  // namespace qreg::corba
