#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bmc/ipmi/call_guard.h"
#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

struct ipmi_ctx;

namespace bmc::ipmi {

/// A session over the LAN (RMCP+), by libfreeipmi.
///
/// The library measures by the calendar clock, and sends again what it believes to be overdue. It is let do neither:
/// its own times are so long that they decide nothing, each try is ended from outside at a deadline of the steady clock
/// (CallGuard), and what is to be sent again is sent again here. So a calendar clock that is set makes no request be
/// sent twice and no call last longer; one that is set forward by more than seven weeks costs the session.
///
/// See Transport for the operations, threads and errors. A session that was given up is closed with one message, the
/// answer to which nobody awaits.
class FreeIpmiTransport : public Transport {
public:
    /// Calls its argument with the account's password, null-terminated, and wipes that afterwards. Called at each
    /// opening. May raise qstd::Exception when there is no password, and passes on what its argument raises.
    using WithPassword = std::function<void(const std::function<void(const char* password)>&)>;

    /// @pre the settings have a host
    FreeIpmiTransport(ControllerSettings settings, WithPassword withPassword);
    ~FreeIpmiTransport() override;

    void Open(SteadyTime deadline) override;
    Response Exchange(const Target& target, const Request& request, Sending_e sending, SteadyTime deadline) override;
    void Close(SteadyTime deadline) noexcept override;
    void Interrupt() override;

private:
    void OpenWith(const char* password, SteadyTime deadline);
    void TryToOpen(const char* password, SteadyTime deadline);
    void Release(SteadyTime deadline) noexcept;
    int Send(const Target& target, const Request& request, std::vector<std::uint8_t>& reply, SteadyTime deadline);
    Response TryToExchange(const Target& target, const Request& request, SteadyTime deadline);
    std::uint8_t AskTheBridge(const Target& target, std::uint8_t guess, SteadyTime deadline);
    void ThrowIfTooLate(SteadyTime deadline);

    const ControllerSettings m_settings;
    const WithPassword m_withPassword;
    const std::string m_host;  ///< address and port as the library takes them
    CallGuard m_guard;
    ipmi_ctx* m_context = nullptr;  ///< null: no session is open
};

}  // namespace bmc::ipmi
