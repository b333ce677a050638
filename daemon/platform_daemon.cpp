#include "platform_daemon.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "bmc_board_info_node.h"
#include "bmc_sensor_node.h"
#include "build_info.h"
#include "configuration_proof.h"
#include "configuration_rules.h"
#include "damage_protection.h"
#include "fans_node.h"
#include "fans_safe.h"
#include "monitor.h"
#include "qnode/factory.h"
#include "qnode/node.h"
#include "qreg/reg_node.h"
#include "qstd/log.h"
#include "qstd/trace_file.h"
#include "qstd/trace_fnc.h"
#include "temperature_control.h"
#include "time_sync.h"

static_assert(qstd::SourceName(__FILE__) == "platform_daemon", "trace records name sources of the daemon bare");

namespace {

constexpr int c_defaultPort = 5678;

const std::string& Name() {
    static const std::string name = "zelkor-platformd";
    return name;
}

[[maybe_unused]] const bool c_versionIsSet = InitVersion();

using NodePtr = std::shared_ptr<qnode::TreeNode>;

/// A node that only holds others.
NodePtr CreateFolder(const std::string& name) {
    return qnode::factory::Create<qreg::RegNode>(name.c_str());
}

/// A folder with a leaf for every datum, in the order of the data's numbers.
template <class Leaf, class Data, class Source>
NodePtr CreateLeaves(const std::string& name, Source* source) {
    NodePtr folder = CreateFolder(name);
    for (const auto& item : qstd::EnumMap<Data>::items.GetNames()) {
        folder->Attach(qnode::factory::Create<qnode::LocalNodeStructure, Leaf>(item.first, source));
    }
    return folder;
}

NodePtr CreateBoardNode(bmc::Board& board) {
    NodePtr node = CreateFolder(board.GetShortName());
    node->Add(CreateLeaves<BmcBoardInfoNode, BmcBoardInfoNode::BoardInfoData_e>("board_info", &board));
    const NodePtr sensors = CreateFolder("sensors");
    for (const bmc::SensorId& id : board.GetSensorsIds()) {
        sensors->Add(
            CreateLeaves<BmcSensorNode, BmcSensorNode::SensorData_e>("ID_" + bmc::ToString(id), board.GetSensor(id)));
    }
    node->Add(sensors);
    return node;
}

/// Adds the board's node to @p boards. A board that cannot be reached, or not shown, is logged and left out.
void AddBoardNode(const bmc::Uri& uri, qnode::TreeNode& boards) {
    const std::string label = bmc::BoardLabel(uri);
    try {
        bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        if (board == nullptr) {
            qstd::LogError("Problem accessing board: " + label);
            return;
        }
        boards.Add(CreateBoardNode(*board));
    } catch (const bmc::BrokenOff&) {
        // the service stops before it has started
    } catch (const std::exception& error) {
        qstd::LogError("Problem accessing board " + label + ". Exception: " + error.what());
    } catch (...) {
        qstd::LogError("Problem accessing board " + label + ". Unknown exception.");
    }
}

/// Leaves the fans fast enough for whatever comes. What keeps it from comparing their speed with the maximum (a board
/// that is too slow for a stop, or raises, or a speed that no register value stands for) does not keep it from setting
/// it. @throws that error, unless it was slowness; what setting the fans throws.
void LeaveFansFast(const TemperatureControl& control) {
    constexpr std::uint32_t c_unknown = 0;  // no register value of a band: the speed is set in any case
    std::uint32_t current = c_unknown;
    try {
        current = control.GetReferenceFanSpeed();
        TemperatureControl::IsRpmEqual(TemperatureControl::c_maxSpeed, current);
    } catch (const bmc::BrokenOff&) {
        current = c_unknown;
    } catch (...) {
        control.SetFansSpeed(TemperatureControl::c_maxSpeed, c_unknown, nullptr);
        throw;
    }
    control.SetFansSpeed(TemperatureControl::c_maxSpeed, current, nullptr);
}

/// How many of the fans are known to be told to run at maximum speed.
std::ptrdiff_t CountFastFans(const FansNode& fans) {
    const std::vector<double> speeds = fans.GetReferenceFansSpeed();
    return std::count_if(speeds.begin(), speeds.end(), [](double speed) { return IsMaximumSpeed(speed); });
}

/// Sets the fans once more when not all of them are known to be fast, and logs an error when that did not help: a
/// register that does not answer counts neither as a speed nor as a failure of the writes before.
void ProveFansAreFast(const TemperatureControl& control, const std::shared_ptr<qnode::TreeNode>& node) {
    const auto fans = std::dynamic_pointer_cast<const FansNode>(node);
    if (fans == nullptr) {
        return;
    }
    constexpr std::ptrdiff_t c_all = FansNode::c_fans;
    try {
        if (CountFastFans(*fans) == c_all) {
            return;
        }
        control.SetFansSpeed(TemperatureControl::c_maxSpeed, 0, nullptr);
        const std::ptrdiff_t fast = CountFastFans(*fans);
        if (fast != c_all) {
            qstd::LogError("Only " + std::to_string(fast) + " of the " + std::to_string(c_all) +
                           " fans are known to be set to 6500 RPM.");
        }
    } catch (const bmc::BrokenOff&) {
        // too slow to be asked at a stop; all were written
    }
}

}  // namespace

PlatformDaemon::PlatformDaemon() : qapp::ZelkorApplication(Name(), false, false) {}

PlatformDaemon::~PlatformDaemon() = default;

const std::string& PlatformDaemon::ApplicationName() const {
    return Name();
}

int PlatformDaemon::DefaultPort() const {
    return c_defaultPort;
}

qapp::ZelkorBoard* PlatformDaemon::CreateBoard(const bmc::Board* /*board*/) {
    const qstd::TraceFnc trace;
    return nullptr;
}

std::vector<qcfg::ElementRule> PlatformDaemon::GetSectionRules() const {
    return WorkerSectionRules();
}

void PlatformDaemon::OnCheckConfig(qcfg::Findings& findings) {
    ProveConfiguration(GetConfig(), findings);
}

void PlatformDaemon::OnPostInit() {
    qstd::LogInfo("**************************************************");
    qstd::LogInfo("***Platform daemon started");
    AddRegistryNodes();
    if (qstd::TraceActiveLevel() > 3) {
        qstd::TraceHere(4, "Exporting following nodes through the qreg:");
        qstd::TraceHere(4, qnode::Node(GetRegistry()).DumpSubTree(-1, 0, qnode::Node::c_defMaxValueLen));
    }
    Monitor::GetInstance();
    DamageProtection::GetInstance();
    TemperatureControl::GetInstance(m_fansNode);
    TimeSync::GetInstance();
}

void PlatformDaemon::OnShutdown() {
    qstd::LogInfo("***Platform daemon is stopping.");
    TimeSync::GetInstance().StopThread();
    DamageProtection::GetInstance().StopThread();
    Monitor::GetInstance().StopThread();
    TemperatureControl& control = TemperatureControl::GetInstance(nullptr);
    control.StopThread();
    // Nobody controls the fans from now on.
    LeaveFansFast(control);
    ProveFansAreFast(control, m_fansNode);
}

void PlatformDaemon::AddRegistryNodes() {
    const NodePtr boards = CreateFolder("boards");
    for (const bmc::Uri& uri : bmc::BoardPool::Instance().GetAllLocalBoardUris()) {
        AddBoardNode(uri, *boards);
    }
    AddRegNode(boards);
    try {
        m_fansNode = qnode::factory::Create<qnode::LocalNodeStructure, FansNode>();
        AddRegNode(m_fansNode);
    } catch (...) {
        qstd::TraceHere(2, "Can't add fans nodes. Ignoring.");
    }
}
