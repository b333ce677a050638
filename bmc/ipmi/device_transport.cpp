#include "bmc/ipmi/device_transport.h"

#include <linux/ipmi.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <fmt/format.h>

namespace bmc::ipmi {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr unsigned char c_responseBit = 1;  ///< of a network function

/// Completion code with which a controller refuses to bridge to a channel that it does not have.
constexpr std::uint8_t c_noSuchChannel = 0xcc;

union Address {
    ipmi_addr any;
    ipmi_system_interface_addr controller;
    ipmi_ipmb_addr bridged;
};

int MakeEvent() {
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        throw qstd::Exception(std::string("cannot make an event descriptor: ") + std::strerror(errno));
    }
    return descriptor;
}

Address ToAddress(const Target& target, std::uint8_t lun) {
    Address address{};
    if (target.IsBridged()) {
        address.bridged.addr_type = IPMI_IPMB_ADDR_TYPE;
        address.bridged.channel = target.channel;
        address.bridged.slave_addr = target.address;
        address.bridged.lun = lun;
    } else {
        address.controller.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
        address.controller.channel = IPMI_BMC_CHANNEL;
        address.controller.lun = lun;
    }
    return address;
}

[[noreturn]] void ThrowSystemError(const std::string& device, int error) {
    switch (error) {
        case ENOENT:
        case ENXIO:
            throw TransportError(TransportFailure_e::system,
                                 device + ": there is no such device; is the kernel module ipmi_devintf loaded?");
        case EACCES:
        case EPERM:
            throw TransportError(TransportFailure_e::system, device + ": no permission to open it");
        case ENODEV:
        case ESHUTDOWN:
            throw TransportError(TransportFailure_e::system, device + ": the controller's driver is gone");
        default:
            throw TransportError(TransportFailure_e::system, device + ": " + std::strerror(error));
    }
}

}  // namespace

DeviceTransport::DeviceTransport(ControllerSettings settings, std::unique_ptr<IpmiDriver> driver)
    : m_settings(std::move(settings)), m_driver(std::move(driver)), m_interruption(MakeEvent()) {}

DeviceTransport::~DeviceTransport() {
    Release();
    ::close(m_interruption);
}

void DeviceTransport::Open(SteadyTime deadline) {
    Release();
    const int device = m_driver->Open(m_settings.device);
    if (device < 0) {
        ThrowSystemError(m_settings.device, -device);
    }
    m_device = device;
    constexpr std::uint8_t c_getDeviceId = 0x01;
    try {
        Exchange({}, {NetFn_e::app, c_getDeviceId}, Sending_e::repeated, deadline);
    } catch (const TransportError&) {
        Release();
        throw;
    }
}

Response DeviceTransport::Exchange(const Target& target, const Request& request, Sending_e sending,
                                   SteadyTime deadline) {
    const auto start = steady_clock::now();
    try {
        ThrowIfTooLate(deadline);
        if (!Send(target, request, sending)) {
            return {c_noSuchChannel, {}, true};
        }
        for (;;) {
            Await(deadline);
            if (auto response = Receive(request)) {
                if (target.IsBridged() && response->completionCode == c_timeout && response->data.empty()) {
                    throw TransportError(TransportFailure_e::noAnswer, "no answer");  // the driver gave up
                }
                // The driver gives both in the same way: the code of the bridge, and that of the board.
                response->isOfBridge = target.IsBridged();
                return *std::move(response);
            }
        }
    } catch (const TransportError& error) {
        if (error.GetFailure() == TransportFailure_e::noAnswer) {
            const auto waited = std::chrono::round<milliseconds>(steady_clock::now() - start);
            throw TransportError(TransportFailure_e::noAnswer, fmt::format("no answer within {} ms", waited.count()));
        }
        throw;
    }
}

/// @return false when the driver says that there is no such address or channel to bridge to
bool DeviceTransport::Send(const Target& target, const Request& request, Sending_e sending) {
    Address address = ToAddress(target, request.lun);
    auto data = request.data;
    ipmi_req_settime message{};
    message.req.addr = reinterpret_cast<unsigned char*>(&address);
    message.req.addr_len = target.IsBridged() ? sizeof address.bridged : sizeof address.controller;
    message.req.msgid = ++m_messageId;
    message.req.msg.netfn = request.netFn;
    message.req.msg.cmd = request.command;
    message.req.msg.data = data.data();
    message.req.msg.data_len = static_cast<unsigned short>(data.size());
    message.retries = sending == Sending_e::once ? 0 : static_cast<int>(m_settings.retries);
    // The driver looks at its times once a second, so it may give up as much too early. What is sent once is given up
    // here, by the deadline.
    const auto tick = std::chrono::milliseconds(sending == Sending_e::once ? 1000 : 0);
    message.retry_time_ms = static_cast<unsigned int>((m_settings.timeout + tick).count());
    const int result = m_driver->Control(m_device, IPMICTL_SEND_COMMAND_SETTIME, &message);
    if (result == -EINVAL && target.IsBridged()) {
        return false;
    }
    if (result < 0) {
        ThrowSystemError(m_settings.device, -result);
    }
    return true;
}

/// Waits until there is something to receive.
void DeviceTransport::Await(SteadyTime deadline) const {
    for (;;) {
        ThrowIfTooLate(deadline);
        const auto left = std::max<std::chrono::nanoseconds>(deadline - steady_clock::now(), {});
        const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
        const timespec limit{.tv_sec = seconds.count(), .tv_nsec = static_cast<long>((left - seconds).count())};
        std::array<pollfd, 2> sources{pollfd{m_device, POLLIN, 0}, pollfd{m_interruption, POLLIN, 0}};
        const int ready = ::ppoll(sources.data(), sources.size(), &limit, nullptr);
        if (ready < 0 && errno != EINTR) {
            ThrowSystemError(m_settings.device, errno);
        }
        if (ready > 0 && sources[0].revents != 0) {
            if ((static_cast<unsigned int>(sources[0].revents) & POLLIN) == 0) {
                ThrowSystemError(m_settings.device, ENODEV);
            }
            return;
        }
    }
}

/// @throws TransportError when Interrupt was called or the deadline has passed
void DeviceTransport::ThrowIfTooLate(SteadyTime deadline) const {
    std::uint64_t interruptions = 0;
    if (::read(m_interruption, &interruptions, sizeof interruptions) > 0) {
        throw TransportError(TransportFailure_e::interrupted, "interrupted");
    }
    if (steady_clock::now() >= deadline) {
        throw TransportError(TransportFailure_e::noAnswer, "no answer");
    }
}

/// @return the answer to the latest request; nothing when the driver had something else: an event, a command from
/// another controller, an answer to a request that nobody waits for any more
std::optional<Response> DeviceTransport::Receive(const Request& request) {
    std::array<unsigned char, IPMI_MAX_MSG_LENGTH> data{};
    Address address{};
    ipmi_recv received{};
    received.addr = reinterpret_cast<unsigned char*>(&address);
    received.addr_len = sizeof address;
    received.msg.data = data.data();
    received.msg.data_len = data.size();
    // Of an answer that is too long the driver gives the beginning, and says EMSGSIZE.
    const int result = m_driver->Control(m_device, IPMICTL_RECEIVE_MSG_TRUNC, &received);
    if (result == -EAGAIN || result == -EINTR) {
        return std::nullopt;
    }
    if (result < 0 && result != -EMSGSIZE) {
        ThrowSystemError(m_settings.device, -result);
    }
    if (received.recv_type != IPMI_RESPONSE_RECV_TYPE || received.msgid != m_messageId) {
        return std::nullopt;
    }
    if (result == -EMSGSIZE || received.msg.data_len > data.size()) {
        throw TransportError(TransportFailure_e::broken,
                             fmt::format("the answer is longer than {} bytes", data.size()));
    }
    if (received.msg.netfn != (request.netFn | c_responseBit) || received.msg.cmd != request.command) {
        throw TransportError(
            TransportFailure_e::broken,
            fmt::format("the answer is one to command 0x{:02x}/0x{:02x}, not to 0x{:02x}/0x{:02x}",
                        received.msg.netfn & ~c_responseBit, received.msg.cmd, request.netFn, request.command));
    }
    if (received.msg.data_len < 1) {
        throw TransportError(TransportFailure_e::broken, "the answer has no completion code");
    }
    return Response{data[0], {data.begin() + 1, data.begin() + received.msg.data_len}};
}

void DeviceTransport::Close(SteadyTime /*deadline*/) noexcept {
    Release();
    eventfd_t ignored = 0;
    ::eventfd_read(m_interruption, &ignored);
}

void DeviceTransport::Interrupt() {
    ::eventfd_write(m_interruption, 1);
}

void DeviceTransport::Release() noexcept {
    if (m_device >= 0) {
        ::close(std::exchange(m_device, -1));
    }
}

}  // namespace bmc::ipmi
