#include "bmc/ipmi/ipmi_backend.h"

#include <thread>
#include <utility>

#include "bmc/ipmi/ipmi_sweep.h"

namespace bmc::ipmi {

IpmiBackend::IpmiBackend(const Settings& settings, const TransportMaker& makeTransport, const LogFunction& log,
                         ControllerTiming controllerTiming, SensorsTiming sensorsTiming)
    : m_cache(settings.cacheFolder, log) {
    for (std::size_t index = 0; index < settings.controllers.size(); ++index) {
        std::vector<BoardOnController> reached;
        for (const BoardSettings& board : settings.boards) {
            if (board.controller == index) {
                reached.push_back({board.uri.ToString(), board.target});
            }
        }
        const ControllerSettings& controller = settings.controllers[index];
        m_controllers.push_back(std::make_unique<Controller>(controller, std::move(reached), makeTransport(controller),
                                                             log, controllerTiming));
        m_stores.push_back(std::make_unique<RepositoryStore>(m_controllers.back()->OwnLink(), controller.Name()));
    }
    std::vector<std::vector<BoardSensors*>> kept(settings.controllers.size());
    for (const BoardSettings& board : settings.boards) {
        Controller& controller = *m_controllers[board.controller];
        Link& link = controller.LinkTo(kept[board.controller].size());
        const SensorSetPlace place{board.uri.ToString(), settings.controllers[board.controller].Name(), board.target};
        auto sensors = std::make_unique<BoardSensors>(
            place.label, std::make_unique<SensorSet>(place, link, *m_stores[board.controller], m_cache, log), link, log,
            sensorsTiming);
        kept[board.controller].push_back(sensors.get());
        auto made = std::make_unique<IpmiBoard>(board, link, *sensors);
        m_uris.push_back(board.uri);
        m_boards.emplace(board.uri, BoardEntry{&link, std::move(sensors), std::move(made)});
    }
    for (std::vector<BoardSensors*>& boards : kept) {
        m_keepers.push_back(std::make_unique<SensorKeeper>(std::move(boards)));
    }
}

IpmiBackend::~IpmiBackend() {
    // The keepers wait for answers like everybody else.
    for (const auto& controller : m_controllers) {
        controller->LimitAccesses({std::chrono::steady_clock::now(), std::chrono::milliseconds(0), {}});
    }
    m_keepers.clear();
    // Controllers close their sessions side by side.
    std::vector<std::thread> closers;
    closers.reserve(m_controllers.size());
    for (auto& controller : m_controllers) {
        closers.emplace_back([closed = std::move(controller)]() mutable { closed.reset(); });
    }
    for (std::thread& closer : closers) {
        closer.join();
    }
}

std::vector<Uri> IpmiBackend::GetAllLocalBoardUris() const {
    return m_uris;
}

Board* IpmiBackend::GetBoard(const Uri& uri) {
    const auto found = m_boards.find(uri);
    return found == m_boards.end() ? nullptr : found->second.board.get();
}

std::unique_ptr<Sweep> IpmiBackend::StartSweep(const SensorIds& sensors) {
    auto sweep = std::make_unique<IpmiSweep>();
    for (const auto& [uri, ids] : sensors) {
        const auto found = m_boards.find(uri);
        if (found == m_boards.end()) {
            continue;
        }
        std::vector<const IpmiSensor*> present;
        present.reserve(ids.size());
        for (const SensorId& id : ids) {
            if (const auto* const sensor = static_cast<const IpmiSensor*>(found->second.sensors->Find(id))) {
                present.push_back(sensor);
            }
        }
        if (!present.empty()) {
            sweep->Add(*found->second.link, present);
        }
    }
    return sweep;
}

void IpmiBackend::LimitAccesses(std::chrono::steady_clock::time_point deadline) {
    for (const auto& controller : m_controllers) {
        controller->LimitAccesses({deadline, c_lastAccessMayTake, std::this_thread::get_id()});
    }
}

}  // namespace bmc::ipmi
