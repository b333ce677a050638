#include "fans_node.h"

#include <boost/lexical_cast.hpp>

#include "bmc/board_pool.h"
#include "fan_node.h"
#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/log.h"
#include "qstd/source_name.h"
#include "qstd/trace_fnc.h"

static_assert(qstd::SourceName(__FILE__) == "fans_node", "trace records name sources of the daemon bare");

FansNode::FansNode() : RegNode("fans", c_readable | c_writable) {
    const qstd::TraceFnc trace;
}

bmc::Board* FansNode::FindController() {
    const qstd::TraceFnc trace;
    bmc::BoardPool& pool = bmc::BoardPool::Instance();
    for (const bmc::Uri& uri : pool.GetAllLocalBoardUris()) {
        bmc::Board* const board = pool.GetBoard(uri);
        if (board == nullptr) {
            qstd::TraceHere(1, "Problem accessing board: " + uri.ToString());
        } else if (board->GetType() == bmc::BoardType_e::icb) {
            return board;
        }
    }
    return nullptr;
}

bool FansNode::Init() {
    const qstd::TraceFnc trace;
    try {
        bmc::Board* const board = FindController();
        if (board == nullptr) {
            qstd::LogInfo("Fans node: ICB board was not found.");
            return false;
        }
        m_board = board;
        for (std::size_t fan = 0; fan < c_fans; ++fan) {
            const auto address = static_cast<std::uint16_t>(m_fan_addresses[fan]);
            m_fans[fan] = Add(qnode::factory::Create<qnode::LocalNodeStructure, FanNode>(board, address));
        }
        return true;
    } catch (...) {
        qstd::LogWarning("Failed to initialise fans node: " + GetName());
        return false;
    }
}

std::vector<double> FansNode::GetReferenceFansSpeed() const {
    const qstd::TraceFnc trace;
    std::vector<double> speeds;
    for (const auto& reference : m_fans) {
        const auto fan = std::dynamic_pointer_cast<FanNode>(reference.lock());
        double rpm = 0.0;
        if (fan != nullptr && fan->GetReferenceSpeed(rpm)) {
            speeds.push_back(rpm);
        }
    }
    return speeds;
}

qnode::enums::ValueType_e FansNode::OnGetValueType(const std::string& /*path*/) const {
    const qstd::TraceFnc trace;
    return qnode::enums::ValueType_e::real;
}

std::size_t FansNode::OnGetSize(const std::string& /*path*/) const {
    const qstd::TraceFnc trace;
    return 1;
}

bool FansNode::OnGet(std::string* value, std::size_t position, std::size_t count) const {
    const qstd::TraceFnc trace;
    double rpm = 0.0;
    OnGet(&rpm, position, count);
    *value = boost::lexical_cast<std::string>(rpm);
    return true;
}

bool FansNode::OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const {
    const qstd::TraceFnc trace;
    double sum = 0.0;
    int readable = 0;
    for (const auto& reference : m_fans) {
        const qnode::Node fan{std::shared_ptr<qnode::TreeNode>(reference)};
        double rpm = 0.0;
        if (fan.GetValue(rpm)) {
            sum += rpm;
            ++readable;
        }
    }
    *value = readable == 0 ? 0.0 : sum / readable;
    return true;
}

void FansNode::OnSet(const std::string* value, std::size_t position, std::size_t count) {
    const qstd::TraceFnc trace;
    const auto rpm = boost::lexical_cast<double>(*value);
    OnSet(&rpm, position, count);
}

void FansNode::OnSet(const double* value, std::size_t /*position*/, std::size_t /*count*/) {
    const qstd::TraceFnc trace;
    std::vector<bmc::FpgaRegisterValue> references;
    references.reserve(c_fans);
    for (const auto& reference : m_fans) {
        const std::shared_ptr<qnode::TreeNode> fan(reference);
        references.push_back(dynamic_cast<const FanNode&>(*fan).GetReferenceFor(*value));
    }
    m_board->FpgaSpiWriteAll(references);
}
