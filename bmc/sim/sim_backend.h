#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "bmc/backend.h"
#include "bmc/sim/description.h"
#include "bmc/sim/fan_bank.h"
#include "bmc/sim/journal.h"
#include "bmc/sim/model_clock.h"
#include "bmc/sim/sim_board.h"
#include "qcfg/element.h"

namespace bmc::sim {

class ControlServer;

/// The simulated chassis. All operations but construction and destruction may be called from any thread.
class SimBackend : public bmc::Backend {
public:
    explicit SimBackend(ChassisDescription description);
    ~SimBackend() override;

    std::vector<Uri> GetAllLocalBoardUris() const override;
    Board* GetBoard(const Uri& uri) override;
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) override;

    /// Serves the operator's commands on the Unix socket @p socketPath until the end.
    /// @throws qstd::Exception when the socket cannot be had
    void StartControl(const std::string& socketPath);

    // The operator's side.

    const std::vector<std::unique_ptr<SimBoard>>& Boards() const noexcept { return m_boards; }

    /// The board, missing or not; null when the description has none.
    SimBoard* FindBoard(const std::string& uri) const;

    /// The board that carries the fan controller, null when none does.
    SimBoard* FanBoard() const noexcept { return m_fanBoard; }

    Journal& GetJournal() noexcept { return m_journal; }
    const ModelClock& GetModelClock() const noexcept { return m_clock; }

private:
    const ModelClock m_clock;
    Journal m_journal;
    std::optional<FanBank> m_fans;
    std::vector<std::unique_ptr<SimBoard>> m_boards;  ///< in the description's order
    std::unordered_map<std::string, SimBoard*> m_boardsByUri;
    SimBoard* m_fanBoard = nullptr;
    std::unique_ptr<ControlServer> m_control;  ///< uses all above
};

/// The simulated chassis that the configuration's section <boards backend="sim" chassis="FILE" control="SOCKET"/> asks
/// for. Without `chassis` it is the built-in one, without `control` there is no control socket. Relative paths are
/// relative to the folder of @p configFile.
/// @throws qstd::Exception "FILE:LINE: text"; nothing was started then.
std::unique_ptr<bmc::Backend> Create(const qcfg::Element& section, const std::string& configFile);

/// As Create, but without the control socket, which belongs to the service: for a process that runs beside it. The
/// chassis is a new one; what is done to it shows nowhere else.
/// @throws qstd::Exception as Create, but for the control socket
std::unique_ptr<bmc::Backend> CreateWithoutControl(const qcfg::Element& section, const std::string& configFile);

/// Proves the section and its chassis description as Create would, and starts nothing.
/// @throws qstd::Exception as Create, but for what only taking the control socket can show
void Check(const qcfg::Element& section, const std::string& configFile);

}  // namespace bmc::sim
