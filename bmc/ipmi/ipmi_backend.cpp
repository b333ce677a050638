#include "bmc/ipmi/ipmi_backend.h"

#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "bmc/ipmi/ipmi_sweep.h"

namespace bmc::ipmi {

namespace {

/// "session with cipher suite 17", for messages.
std::string SessionText(const ControllerSettings& settings) {
    return settings.host.empty() ? "local system interface"
                                 : "session with cipher suite " + std::to_string(settings.cipherSuite);
}

}  // namespace

IpmiBackend::IpmiBackend(const Settings& settings, const TransportMaker& makeTransport, const LogFunction& log,
                         const ControllerTiming& controllerTiming, const SensorsTiming& sensorsTiming)
    : m_cache(settings.cacheFolder, log, settings.isCacheReadOnly) {
    OpenControllers(settings, makeTransport, log, controllerTiming);
    for (const BoardSettings& board : settings.boards) {
        ControllerEntry& reached = m_controllers[board.controller];
        Link& link = reached.controller->LinkTo(reached.boards.size());
        const std::string label = board.uri.ToString();
        const SensorSetPlace place{label, settings.controllers[board.controller].Name(), board.target};
        auto sensors = std::make_unique<BoardSensors>(
            label, std::make_unique<SensorSet>(place, link, *reached.repository, m_cache, log), link, log,
            sensorsTiming);
        reached.boards.push_back(sensors.get());
        auto made = std::make_unique<IpmiBoard>(board, link, *sensors, log);
        m_uris.push_back(board.uri);
        m_boards.emplace(board.uri, BoardEntry{&link, std::move(sensors), std::move(made)});
    }
    for (const ControllerEntry& reached : m_controllers) {
        m_keepers.push_back(std::make_unique<SensorKeeper>(reached.boards));
    }
}

void IpmiBackend::OpenControllers(const Settings& settings, const TransportMaker& makeTransport, const LogFunction& log,
                                  const ControllerTiming& timing) {
    for (std::size_t index = 0; index < settings.controllers.size(); ++index) {
        std::vector<BoardOnController> reached;
        for (const BoardSettings& board : settings.boards) {
            if (board.controller == index) {
                reached.push_back({board.uri.ToString(), board.target});
            }
        }
        const ControllerSettings& way = settings.controllers[index];
        const ControllerOptions options{way.Name(), SessionText(way), way.timeout, way.retries};
        auto controller = std::make_unique<Controller>(options, reached, makeTransport(way), log, timing);
        auto repository = std::make_unique<RepositoryStore>(controller->OwnLink(), way.Name());
        m_controllers.push_back({std::move(controller), std::move(repository), {}});
    }
}

IpmiBackend::~IpmiBackend() {
    // The keepers wait for answers like everybody else.
    for (const ControllerEntry& reached : m_controllers) {
        reached.controller->LimitAccesses({std::chrono::steady_clock::now(), std::chrono::milliseconds(0), {}});
    }
    m_keepers.clear();
    // Controllers close their sessions side by side.
    std::vector<std::thread> closers;
    closers.reserve(m_controllers.size());
    for (ControllerEntry& reached : m_controllers) {
        try {
            closers.emplace_back([closed = std::move(reached.controller)]() mutable { closed.reset(); });
        } catch (const std::system_error&) {  // no thread to be had: it was closed on the spot
        }
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
    for (const ControllerEntry& reached : m_controllers) {
        reached.controller->LimitAccesses({deadline, c_lastAccessMayTake, std::this_thread::get_id()});
    }
    for (const auto& [uri, entry] : m_boards) {
        entry.board->EndWaits(deadline);
    }
}

}  // namespace bmc::ipmi
