#include "qreg/reg_node.h"

#include "qstd/exception.h"

namespace qreg {

qnode::TreeNode& RegNode::Below(const std::string& path) {
    qnode::TreeNode* const node = FindBelow(path);
    if (node == nullptr) {
        throw qstd::Exception("No node \"" + path + "\" below \"" + GetName() + "\"", true);
    }
    return *node;
}

void RegNode::Set(double value, std::size_t position, const std::string& path) {
    Below(path).OnSet(&value, position, 1);
}

void RegNode::Set(int value, std::size_t position, const std::string& path) {
    Below(path).OnSet(&value, position, 1);
}

void RegNode::Set(const std::string& value, std::size_t position, const std::string& path) {
    Below(path).OnSet(&value, position, 1);
}

}  // namespace qreg
