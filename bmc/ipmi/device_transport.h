#pragma once

#include <memory>
#include <optional>
#include <string>

#include "bmc/ipmi/ipmi_driver.h"
#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// The way to the controller of this host by the local system interface, /dev/ipmi0, and by that to others on its IPMB.
/// There are no accounts: who may open the device may do everything.
///
/// The kernel's own interface is used, because libfreeipmi waits by the calendar clock and hides what could be waited
/// for. Requests to the controller itself cannot get lost and are not sent again. Those that are bridged are sent again
/// by the driver, which answers itself with c_timeout when it gives up; it looks at its clock once a second only.
///
/// See Transport for the operations, threads and errors. There is no session: opening asks for the device id, so that
/// success means what it does over the LAN; closing tells nobody.
class DeviceTransport : public Transport {
public:
    /// @pre the settings have a device
    /// @throws qstd::Exception when the host has no descriptor left
    explicit DeviceTransport(ControllerSettings settings,
                             std::unique_ptr<IpmiDriver> driver = std::make_unique<IpmiDriver>());
    ~DeviceTransport() override;

    void Open(SteadyTime deadline) override;
    Response Exchange(const Target& target, const Request& request, Sending_e sending, SteadyTime deadline) override;
    void Close(SteadyTime deadline) noexcept override;
    void Interrupt() override;

private:
    bool Send(const Target& target, const Request& request, Sending_e sending);
    std::optional<Response> Receive(const Request& request);
    void Await(SteadyTime deadline) const;
    void ThrowIfTooLate(SteadyTime deadline) const;
    void Release() noexcept;

    const ControllerSettings m_settings;
    const std::unique_ptr<IpmiDriver> m_driver;
    const int m_interruption;  ///< readable from an interruption until somebody was told
    int m_device = -1;         ///< -1: not open
    long m_messageId = 0;      ///< of the latest request
};

}  // namespace bmc::ipmi
