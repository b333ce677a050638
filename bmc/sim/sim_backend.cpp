#include "bmc/sim/sim_backend.h"

#include <filesystem>
#include <utility>

#include "bmc/sim/builtin_chassis.h"
#include "bmc/sim/control_server.h"
#include "bmc/sim/listening_socket.h"
#include "qcfg/element_reader.h"
#include "qstd/exception.h"

namespace bmc::sim {

namespace {

using qcfg::ElementReader;

void EmplaceFans(std::optional<FanBank>& fans, const ChassisDescription& description) {
    for (const BoardDescription& board : description.boards) {
        if (board.fans) {
            fans.emplace(*board.fans);
        }
    }
}

std::string Resolve(const std::string& path, const std::string& configFile) {
    return (std::filesystem::path(configFile).parent_path() / path).string();
}

/// Runs @p action, whose failure is told with the line of @p section.
template <class Action>
void RefuseHere(const ElementReader& section, Action action) {
    try {
        action();
    } catch (const qstd::Exception& error) {
        section.Refuse(error.what());
    }
}

std::string ControlPathOf(const ElementReader& section, const std::string& configFile) {
    return Resolve(section.RequiredText("control"), configFile);
}

ChassisDescription ReadSection(const ElementReader& section, const std::string& configFile) {
    section.CheckContent({"backend", "chassis", "control"}, {});
    if (!section.Has("chassis")) {
        return ReadChassisText(c_builtinChassis, c_builtinChassisName);
    }
    const std::string path = Resolve(section.RequiredText("chassis"), configFile);
    try {
        return ReadChassisFile(path);
    } catch (const qstd::Exception& error) {
        // What is wrong inside the file names its own line; that it cannot be read is this section's fault.
        if (std::string(error.what()).compare(0, path.size() + 2, path + ": ") == 0) {
            section.Refuse("chassis description " + std::string(error.what()));
        }
        throw;
    }
}

}  // namespace

SimBackend::SimBackend(ChassisDescription description) : m_clock(description.speed), m_journal(m_clock) {
    EmplaceFans(m_fans, description);
    const ChassisContext context{m_clock, m_journal, m_fans ? &*m_fans : nullptr, description.ambient,
                                 description.seed};
    for (BoardDescription& board : description.boards) {
        m_boards.push_back(std::make_unique<SimBoard>(std::move(board), context));
        SimBoard* const made = m_boards.back().get();
        m_boardsByUri.emplace(made->GetUri().ToString(), made);
        if (made->Fans() != nullptr) {
            m_fanBoard = made;
        }
    }
}

SimBackend::~SimBackend() = default;

std::vector<Uri> SimBackend::GetAllLocalBoardUris() const {
    std::vector<Uri> uris;
    uris.reserve(m_boards.size());
    for (const auto& board : m_boards) {
        uris.push_back(board->GetUri());
    }
    return uris;
}

Board* SimBackend::GetBoard(const Uri& uri) {
    SimBoard* const board = FindBoard(uri.ToString());
    return board == nullptr || board->IsMissing() ? nullptr : board;
}

void SimBackend::LimitAccesses(std::chrono::steady_clock::time_point deadline) {
    for (const auto& board : m_boards) {
        board->Gate().LimitAccesses(deadline, c_lastAccessMayTake);
    }
}

SimBoard* SimBackend::FindBoard(const std::string& uri) const {
    const auto found = m_boardsByUri.find(uri);
    return found == m_boardsByUri.end() ? nullptr : found->second;
}

void SimBackend::StartControl(const std::string& socketPath) {
    m_control = std::make_unique<ControlServer>(*this, socketPath, ControlServer::Limits{});
}

std::unique_ptr<bmc::Backend> Create(const qcfg::Element& section, const std::string& configFile) {
    const ElementReader reader(section, configFile);
    auto backend = std::make_unique<SimBackend>(ReadSection(reader, configFile));
    if (reader.Has("control")) {
        RefuseHere(reader, [&] { backend->StartControl(ControlPathOf(reader, configFile)); });
    }
    return backend;
}

std::unique_ptr<bmc::Backend> CreateWithoutControl(const qcfg::Element& section, const std::string& configFile) {
    return std::make_unique<SimBackend>(ReadSection(ElementReader(section, configFile), configFile));
}

void Check(const qcfg::Element& section, const std::string& configFile) {
    const ElementReader reader(section, configFile);
    ReadSection(reader, configFile);
    if (reader.Has("control")) {
        RefuseHere(reader, [&] { ListeningSocket::CheckPath(ControlPathOf(reader, configFile)); });
    }
}

}  // namespace bmc::sim
