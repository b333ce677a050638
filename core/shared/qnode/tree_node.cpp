#include "qnode/tree_node.h"

#include <algorithm>
#include <utility>

#include "qstd/exception.h"

namespace qnode {

namespace {

auto FindByName(const std::vector<std::shared_ptr<TreeNode>>& nodes, const std::string& name) {
    return std::find_if(nodes.begin(), nodes.end(), [&name](const auto& node) { return node->GetName() == name; });
}

}  // namespace

TreeNode::TreeNode(std::string name, std::uint64_t flags) : m_name(std::move(name)), m_flags(flags) {
    if (m_name.empty() || m_name.find('/') != std::string::npos) {
        throw qstd::Exception("Bad node name \"" + m_name + "\": empty or with a slash");
    }
}

std::shared_ptr<TreeNode> TreeNode::Add(const std::shared_ptr<TreeNode>& child) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (FindByName(m_children, child->GetName()) != m_children.end()) {
        throw qstd::Exception("Node \"" + m_name + "\" already has a child \"" + child->GetName() + "\"");
    }
    const std::lock_guard<std::mutex> childGuard(child->m_mutex);
    if (child->m_parent.lock() != nullptr) {
        throw qstd::Exception("Node \"" + child->GetName() + "\" already has a parent");
    }
    m_children.push_back(child);
    child->m_parent = weak_from_this();
    return child;
}

std::shared_ptr<TreeNode> TreeNode::Attach(const std::shared_ptr<TreeNode>& child) {
    Add(child);
    return shared_from_this();
}

std::vector<std::shared_ptr<TreeNode>> TreeNode::GetChildren() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_children;
}

std::shared_ptr<TreeNode> TreeNode::FindChild(const std::string& name) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = FindByName(m_children, name);
    return found == m_children.end() ? nullptr : *found;
}

std::shared_ptr<TreeNode> TreeNode::GetParent() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_parent.lock();
}

std::uint64_t TreeNode::OnGetFlags() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_flags;
}

void TreeNode::OnSetFlags(std::uint64_t flags) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_flags |= flags;
}

}  // namespace qnode
