#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "bmc/backend.h"
#include "bmc/ipmi/board_sensors.h"
#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/ipmi_board.h"
#include "bmc/ipmi/record_cache.h"
#include "bmc/ipmi/repository.h"
#include "bmc/ipmi/sensor_keeper.h"
#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// Boards over IPMI. All operations but construction and destruction may be called from any thread.
class IpmiBackend : public bmc::Backend {
public:
    using TransportMaker = std::function<std::unique_ptr<Transport>(const ControllerSettings&)>;

    /// Starts the threads, which open the sessions and find out the sensors, all controllers side by side.
    IpmiBackend(const Settings& settings, const TransportMaker& makeTransport, const LogFunction& log,
                ControllerTiming controllerTiming = {}, SensorsTiming sensorsTiming = {});
    ~IpmiBackend() override;

    std::vector<Uri> GetAllLocalBoardUris() const override;
    Board* GetBoard(const Uri& uri) override;
    std::unique_ptr<Sweep> StartSweep(const SensorIds& sensors) override;
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) override;

private:
    struct BoardEntry {
        Link* link;
        std::unique_ptr<BoardSensors> sensors;
        std::unique_ptr<IpmiBoard> board;
    };

    std::vector<std::unique_ptr<Controller>> m_controllers;
    std::vector<std::unique_ptr<RepositoryStore>> m_stores;  ///< of each controller
    RecordCache m_cache;
    std::vector<Uri> m_uris;  ///< in the configuration's order
    std::map<Uri, BoardEntry> m_boards;
    std::vector<std::unique_ptr<SensorKeeper>> m_keepers;  ///< use all above
};

}  // namespace bmc::ipmi
