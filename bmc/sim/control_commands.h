#pragma once

#include <span>
#include <string>
#include <vector>

#include "bmc/sim/journal.h"
#include "bmc/sim/sim_backend.h"

namespace bmc::sim {

/// What the operator's commands do to the simulated chassis. May be called from any thread; never waits for an access
/// to a board.
class ControlCommands {
public:
    /// @param chassis outlives this object
    explicit ControlCommands(SimBackend& chassis) : m_chassis(chassis) {}

    /// Carries out one request, given as its fields.
    /// @return the body lines of the reply, each with its "+" and newline
    /// @throws qstd::Exception when it is refused; nothing was changed then
    std::string Execute(const std::vector<std::string>& request);

    /// The body lines of an extract of the journal.
    static std::string JournalLines(const Journal::Extract& extract);

private:
    using Request = std::vector<std::string>;
    struct Command {
        const char* name;
        std::size_t arguments;
        std::string (ControlCommands::*execute)(const Request& request);
    };
    static std::span<const Command> Commands();

    std::string List(const Request& request);
    std::string Set(const Request& request);
    std::string Auto(const Request& request);
    std::string Invalid(const Request& request);
    std::string Fail(const Request& request);
    std::string Missing(const Request& request);
    std::string Slow(const Request& request);
    std::string Heal(const Request& request);
    std::string Limit(const Request& request);
    std::string Clock(const Request& request);
    std::string FpgaRead(const Request& request);
    std::string FpgaWrite(const Request& request);
    std::string FpgaFail(const Request& request);
    std::string FpgaHeal(const Request& request);
    std::string ShowJournal(const Request& request);
    std::string ShutDownCount(const Request& request);
    std::string Power(const Request& request);

    SimBoard& BoardOf(const std::string& uri) const;
    SimSensor& SensorOf(const std::string& uri, const std::string& id) const;
    SimBoard& FanBoard() const;

    SimBackend& m_chassis;
};

}  // namespace bmc::sim
