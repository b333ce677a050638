#include "bmc/ipmi/freeipmi_failure.h"

#include <freeipmi/api/ipmi-api.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace bmc::ipmi {

namespace {

const char* PrivilegeText(Privilege_e privilege) {
    switch (privilege) {
        case Privilege_e::user:
            return "user";
        case Privilege_e::operator_:
            return "operator";
        case Privilege_e::administrator:
            return "administrator";
    }
    return "unknown";
}

/// The library tells most errors of the system as "internal error".
TransportError InternalError(int systemError, const ControllerSettings& settings) {
    switch (systemError) {
        case EACCES:
        case EPERM:
            return {TransportFailure_e::system, fmt::format("this host does not let packets to {} out (firewall?): {}",
                                                            settings.host, std::strerror(systemError))};
        case EADDRNOTAVAIL:
        case EAFNOSUPPORT:
        case EMFILE:
        case ENETDOWN:
        case ENFILE:
        case ENOBUFS:
            return {TransportFailure_e::system,
                    fmt::format("cannot send to {}: {}", settings.host, std::strerror(systemError))};
        default:
            return {TransportFailure_e::broken, "malformed answer"};
    }
}

}  // namespace

TransportError ToTransportError(int errorNumber, int systemError, const ControllerSettings& settings) {
    using enum TransportFailure_e;
    switch (errorNumber) {
        case IPMI_ERR_USERNAME_INVALID:
            return {refused, fmt::format("the controller knows no user \"{}\"", settings.user)};
        case IPMI_ERR_PASSWORD_INVALID:
            return {refused, fmt::format("wrong password for user \"{}\"", settings.user)};
        case IPMI_ERR_K_G_INVALID:
            return {refused, "the controller wants a key (K_g) besides the password, which is not supported"};
        case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
        case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
            return {refused, fmt::format("user \"{}\" is not allowed privilege level {}", settings.user,
                                         PrivilegeText(settings.privilege))};
        case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
            return {refused, fmt::format("cipher suite {} is not offered", settings.cipherSuite)};
        case IPMI_ERR_IPMI_2_0_UNAVAILABLE:
            return {refused, "the controller does not offer RMCP+ (IPMI v2.0) sessions"};
        case IPMI_ERR_BMC_BUSY:
            return {refused, "no session slot is free, or the controller is busy"};
        case IPMI_ERR_BAD_RMCPPLUS_STATUS_CODE:
            return {refused, fmt::format("the controller refused to open a session; probably cipher suite {} is not "
                                         "offered",
                                         settings.cipherSuite)};
        case IPMI_ERR_AUTHENTICATION_TYPE_UNAVAILABLE:
        case IPMI_ERR_BAD_COMPLETION_CODE:
        case IPMI_ERR_COMMAND_INVALID_OR_UNSUPPORTED:
            return {refused,
                    fmt::format("the controller refused to open a session ({})", ipmi_ctx_strerror(errorNumber))};
        case IPMI_ERR_CONNECTION_TIMEOUT:
        case IPMI_ERR_MESSAGE_TIMEOUT:
        case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
        case IPMI_ERR_SESSION_TIMEOUT:
            return {noAnswer, "no answer"};
        case IPMI_ERR_IPMI_ERROR:
            // Some controllers refuse with a status code alone, without the session's number that the library looks for
            // first.
            return {broken, fmt::format("the answer is cut short (when a session is opened: probably cipher suite {} "
                                        "is not offered, or no session slot is free)",
                                        settings.cipherSuite)};
        case IPMI_ERR_HOSTNAME_INVALID:
            return {system, fmt::format("\"{}\" is no address that this host can send to", settings.host)};
        case IPMI_ERR_OUT_OF_MEMORY:
            return {system, "out of memory"};
        case IPMI_ERR_SYSTEM_ERROR:
            return {system, fmt::format("no route to {}", settings.host)};
        case IPMI_ERR_INTERNAL_ERROR:
            return InternalError(systemError, settings);
        default:
            return {broken, fmt::format("malformed answer ({})", ipmi_ctx_strerror(errorNumber))};
    }
}

}  // namespace bmc::ipmi
