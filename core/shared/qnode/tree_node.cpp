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

void TreeNode::RefuseLoop(const TreeNode& child) const {
    std::shared_ptr<const TreeNode> node = shared_from_this();
    while (node != nullptr) {
        if (node.get() == &child) {
            throw qstd::Exception("Node \"" + child.GetName() + "\" cannot be added to \"" + m_name +
                                  "\": it is that node or one above it");
        }
        node = node->GetParent();
    }
}

std::shared_ptr<TreeNode> TreeNode::Add(const std::shared_ptr<TreeNode>& child) {
    // One at a time in the whole process: no chain of parents changes while it is looked at.
    static std::mutex adding;
    const std::lock_guard<std::mutex> addingGuard(adding);
    RefuseLoop(*child);
    if (const auto parent = child->GetParent()) {
        throw qstd::Exception("Node \"" + child->GetName() + "\" cannot be added to \"" + m_name +
                              "\": it stands under \"" + parent->GetName() + "\"");
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (FindByName(m_children, child->GetName()) != m_children.end()) {
        throw qstd::Exception("Node \"" + m_name + "\" already has a child \"" + child->GetName() + "\"");
    }
    m_children.push_back(child);
    const std::lock_guard<std::mutex> childGuard(child->m_mutex);
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
