#include "bench_tree.h"

#include <array>

#include "qnode/factory.h"
#include "qreg/reg_node.h"

namespace bench {

namespace {

constexpr std::array c_leaves{"value", "name", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom", "type", "units"};

class Number : public qreg::RegNode {
public:
    Number(const std::string& name, double value) : RegNode(name, c_readable), m_value(value) {}
    qnode::enums::ValueType_e OnGetValueType(const std::string& /*path*/) const override {
        return qnode::enums::ValueType_e::real;
    }
    std::size_t OnGetSize(const std::string& /*path*/) const override { return 1; }
    using RegNode::OnGet;
    bool OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        *value = m_value;
        return true;
    }

private:
    double m_value;
};

class Label : public qreg::RegNode {
public:
    explicit Label(const std::string& name) : RegNode(name, c_readable) {}
    qnode::enums::ValueType_e OnGetValueType(const std::string& /*path*/) const override {
        return qnode::enums::ValueType_e::text;
    }
    std::size_t OnGetSize(const std::string& /*path*/) const override { return 1; }
    using RegNode::OnGet;
    bool OnGet(std::string* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        *value = "Inlet air";
        return true;
    }
};

std::shared_ptr<qnode::TreeNode> MakeContainer(const std::string& name) {
    return qnode::factory::Create<qreg::RegNode>(name.c_str());
}

}  // namespace

std::shared_ptr<qnode::TreeNode> MakeNumber(const std::string& name, double value) {
    return qnode::factory::Create<qnode::LocalNodeStructure, Number>(name, value);
}

std::shared_ptr<qnode::TreeNode> MakeBoard(const std::string& name, std::size_t sensors) {
    const auto board = MakeContainer(name);
    const auto folder = board->Add(MakeContainer("sensors"));
    for (std::size_t sensor = 0; sensor < sensors; ++sensor) {
        const auto node = folder->Add(MakeContainer("ID_" + std::to_string(sensor)));
        for (const std::string leaf : c_leaves) {
            const bool isText = leaf == "name" || leaf == "type" || leaf == "units";
            node->Add(isText ? qnode::factory::Create<qnode::LocalNodeStructure, Label>(leaf)
                             : MakeNumber(leaf, 48.25 + static_cast<double>(sensor)));
        }
    }
    return board;
}

std::shared_ptr<qnode::TreeNode> MakeTree(std::size_t boards, std::size_t sensors) {
    const auto root = MakeContainer("registry");
    const auto all = root->Add(MakeContainer("boards"));
    for (std::size_t board = 0; board < boards; ++board) {
        all->Add(MakeBoard("B" + std::to_string(board), sensors));
    }
    return root;
}

std::string ValuePath(std::size_t board, std::size_t sensor) {
    return "boards/B" + std::to_string(board) + "/sensors/ID_" + std::to_string(sensor) + "/value";
}

}  // namespace bench
