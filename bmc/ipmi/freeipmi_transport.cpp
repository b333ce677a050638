#include "bmc/ipmi/freeipmi_transport.h"

#include <freeipmi/api/ipmi-api.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include "bmc/ipmi/freeipmi_failure.h"

namespace bmc::ipmi {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The library's own times, in milliseconds: the longest that its arithmetic bears. It wants the former to be shorter.
constexpr unsigned int c_neverSendAgain = 24U * 24 * 3600 * 1000;
constexpr unsigned int c_neverGiveUp = 49U * 24 * 3600 * 1000;

// What an account has room for (IPMI v2.0 specification, 22.29 and 22.30).
constexpr std::size_t c_mostUserName = 16;
constexpr std::size_t c_mostPassword = 20;

/// Longer than any message.
constexpr std::size_t c_replySize = 1024;

/// An IPv6 address stands in brackets before the port.
std::string HostAndPort(const ControllerSettings& settings) {
    const bool hasColons = settings.host.find(':') != std::string::npos;
    return fmt::format("{}{}{}:{}", hasColons ? "[" : "", settings.host, hasColons ? "]" : "", settings.port);
}

TransportError NoAnswerSince(SteadyTime start) {
    const auto waited = std::chrono::round<milliseconds>(steady_clock::now() - start);
    return {TransportFailure_e::noAnswer, fmt::format("no answer within {} ms", waited.count())};
}

/// A completion code with which a bridge refuses, which the library tells as an error of its own, several codes as the
/// same; nothing for other errors.
struct BridgeCode {
    std::uint8_t code;
    bool isCertain;
};
std::optional<BridgeCode> ToBridgeCode(int errorNumber) {
    switch (errorNumber) {
        case IPMI_ERR_MESSAGE_TIMEOUT:
            return BridgeCode{c_timeout, true};
        case IPMI_ERR_BMC_BUSY:
            return BridgeCode{c_nodeBusy, false};
        case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
            return BridgeCode{c_insufficientPrivilege, true};
        case IPMI_ERR_COMMAND_INVALID_OR_UNSUPPORTED:
            return BridgeCode{c_invalidCommand, false};
        case IPMI_ERR_BAD_COMPLETION_CODE:
            return BridgeCode{c_noAcknowledge, false};
        default:
            return std::nullopt;
    }
}

}  // namespace

FreeIpmiTransport::FreeIpmiTransport(ControllerSettings settings, WithPassword withPassword)
    : m_settings(std::move(settings)), m_withPassword(std::move(withPassword)), m_host(HostAndPort(m_settings)) {}

FreeIpmiTransport::~FreeIpmiTransport() {
    Release(steady_clock::now());
}

void FreeIpmiTransport::Open(SteadyTime deadline) {
    Release(steady_clock::now());
    try {
        m_withPassword([&](const char* password) { OpenWith(password, deadline); });
    } catch (const TransportError&) {
        throw;
    } catch (const qstd::Exception& error) {
        throw TransportError(TransportFailure_e::system, error.what());
    }
}

/// An opening is five requests, of which the library here sends none again; one that is lost costs an attempt. The
/// first attempts are given less time than a try of a request: a controller that is there mostly opens within
/// milliseconds.
void FreeIpmiTransport::OpenWith(const char* password, SteadyTime deadline) {
    if (m_settings.user.size() > c_mostUserName || std::strlen(password) > c_mostPassword) {
        throw TransportError(TransportFailure_e::system,
                             fmt::format("user names have up to {} bytes and passwords up to {}; those of user \"{}\" "
                                         "are longer",
                                         c_mostUserName, c_mostPassword, m_settings.user));
    }
    const auto start = steady_clock::now();
    auto patience = m_settings.timeout / 2;
    for (unsigned int left = m_settings.retries;; --left, patience *= 2) {
        const auto end = left == 0 ? deadline : std::min(deadline, steady_clock::now() + patience);
        try {
            TryToOpen(password, end);
            return;
        } catch (const TransportError& error) {
            const bool mayBeLoss =
                error.GetFailure() == TransportFailure_e::noAnswer || error.GetFailure() == TransportFailure_e::broken;
            if (!mayBeLoss) {
                throw;
            }
            if (left == 0 || steady_clock::now() >= deadline) {
                throw error.GetFailure() == TransportFailure_e::noAnswer ? NoAnswerSince(start) : error;
            }
        }
    }
}

void FreeIpmiTransport::TryToOpen(const char* password, SteadyTime deadline) {
    ThrowIfTooLate(deadline);
    std::unique_ptr<ipmi_ctx, decltype(&ipmi_ctx_destroy)> context(ipmi_ctx_create(), &ipmi_ctx_destroy);
    if (!context) {
        throw TransportError(TransportFailure_e::system, "out of memory");
    }
    m_guard.Begin(deadline);
    errno = 0;
    const int result = ipmi_ctx_open_outofband_2_0(
        context.get(), m_host.c_str(), m_settings.user.c_str(), password, nullptr, 0,
        static_cast<std::uint8_t>(m_settings.privilege), m_settings.cipherSuite, c_neverGiveUp, c_neverSendAgain,
        // Asks for the level that is meant instead of the highest there is: some controllers grant what they are asked.
        IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE, IPMI_FLAGS_DEFAULT);
    const int systemError = errno;
    m_guard.End();
    if (result != 0) {
        const int error = ipmi_ctx_errnum(context.get());
        if (error == IPMI_ERR_INTERNAL_ERROR) {
            ThrowIfTooLate(deadline);
        }
        throw ToTransportError(error, systemError, m_settings);
    }
    m_context = context.release();
}

Response FreeIpmiTransport::Exchange(const Target& target, const Request& request, Sending_e sending,
                                     SteadyTime deadline) {
    const auto start = steady_clock::now();
    for (unsigned int left = sending == Sending_e::once ? 0 : m_settings.retries;; --left) {
        const auto end = left == 0 ? deadline : std::min(deadline, steady_clock::now() + m_settings.timeout);
        try {
            return TryToExchange(target, request, end);
        } catch (const TransportError& error) {
            if (error.GetFailure() != TransportFailure_e::noAnswer) {
                throw;
            }
            if (left == 0 || steady_clock::now() >= deadline) {
                throw NoAnswerSince(start);
            }
        }
    }
}

Response FreeIpmiTransport::TryToExchange(const Target& target, const Request& request, SteadyTime deadline) {
    std::vector<std::uint8_t> reply;
    const int error = Send(target, request, reply, deadline);
    if (error != IPMI_ERR_SUCCESS) {
        const auto code = target.IsBridged() ? ToBridgeCode(error) : std::nullopt;
        if (!code) {
            throw ToTransportError(error, 0, m_settings);
        }
        return {code->isCertain ? code->code : AskTheBridge(target, code->code, deadline), {}, true};
    }
    // The command stands in front of the completion code.
    if (reply.size() < 2) {
        throw TransportError(TransportFailure_e::broken, "the answer has no completion code");
    }
    if (reply[0] != request.command) {
        throw TransportError(
            TransportFailure_e::broken,
            fmt::format("the answer is one to command 0x{:02x}, not to 0x{:02x}", reply[0], request.command));
    }
    return {reply[1], {reply.begin() + 2, reply.end()}};
}

/// The code with which the bridge refuses to pass requests to @p target on. It is asked with one that may be executed,
/// Get Device ID, the answer to which nobody awaits.
/// @return @p guess when the bridge has no code now
std::uint8_t FreeIpmiTransport::AskTheBridge(const Target& target, std::uint8_t guess, SteadyTime deadline) {
    constexpr std::uint8_t c_sendMessage = 0x34;
    constexpr std::uint8_t c_tracked = 0x40;
    constexpr std::uint8_t c_getDeviceIdNetFn = static_cast<std::uint8_t>(NetFn_e::app) << 2U;
    constexpr std::uint8_t c_getDeviceId = 0x01;
    const auto checksum = [](unsigned int sum) { return static_cast<std::uint8_t>(0x100U - (sum & 0xffU)); };
    const Request probe(NetFn_e::app, c_sendMessage,
                        {static_cast<std::uint8_t>(c_tracked | target.channel), target.address, c_getDeviceIdNetFn,
                         checksum(target.address + c_getDeviceIdNetFn), c_controllerAddress, 0, c_getDeviceId,
                         checksum(c_controllerAddress + c_getDeviceId)});
    std::vector<std::uint8_t> reply;
    const int error = Send({}, probe, reply, deadline);
    const bool hasCode = error == IPMI_ERR_SUCCESS && reply.size() >= 2 && reply[1] != c_completed;
    return hasCode ? reply[1] : guess;
}

/// @return IPMI_ERR_SUCCESS or what the library says went wrong @throws TransportError when the deadline came first
int FreeIpmiTransport::Send(const Target& target, const Request& request, std::vector<std::uint8_t>& reply,
                            SteadyTime deadline) {
    ThrowIfTooLate(deadline);
    std::vector<std::uint8_t> message{request.command};
    message.insert(message.end(), request.data.begin(), request.data.end());
    const auto size = static_cast<unsigned int>(message.size());
    reply.resize(c_replySize);

    m_guard.Begin(deadline);
    errno = 0;
    const int length =
        target.IsBridged()
            ? ipmi_cmd_raw_ipmb(m_context, target.channel, target.address, request.lun, request.netFn, message.data(),
                                size, reply.data(), c_replySize)
            : ipmi_cmd_raw(m_context, request.lun, request.netFn, message.data(), size, reply.data(), c_replySize);
    const int systemError = errno;
    m_guard.End();
    if (length >= 0) {
        reply.resize(static_cast<std::size_t>(length));
        return IPMI_ERR_SUCCESS;
    }
    const int error = ipmi_ctx_errnum(m_context);
    if (error == IPMI_ERR_INTERNAL_ERROR) {  // what a call is that the guard has ended
        ThrowIfTooLate(deadline);
        throw ToTransportError(error, systemError, m_settings);
    }
    return error;
}

void FreeIpmiTransport::Close(SteadyTime deadline) noexcept {
    const bool wasInterrupted = m_guard.TakeInterruption();
    Release(wasInterrupted ? steady_clock::now() : deadline);
    m_guard.TakeInterruption();
}

void FreeIpmiTransport::Interrupt() {
    m_guard.Interrupt();
}

/// Closes the session if one is open, and waits until @p deadline at the most for the controller to confirm it.
void FreeIpmiTransport::Release(SteadyTime deadline) noexcept {
    ipmi_ctx* const context = std::exchange(m_context, nullptr);
    if (context == nullptr) {
        return;
    }
    try {
        m_guard.Begin(deadline);
    } catch (const qstd::Exception&) {
        // Without a timer to end it the closing might block for weeks. A host that has none left has worse troubles
        // than this session's memory.
        return;
    }
    ipmi_ctx_destroy(context);
    m_guard.End();
}

void FreeIpmiTransport::ThrowIfTooLate(SteadyTime deadline) {
    if (m_guard.TakeInterruption()) {
        throw TransportError(TransportFailure_e::interrupted, "interrupted");
    }
    if (steady_clock::now() >= deadline) {
        throw TransportError(TransportFailure_e::noAnswer, "no answer");
    }
}

}  // namespace bmc::ipmi
