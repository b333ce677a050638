#include "qnode/tree_node.h"

#include <unordered_set>
#include <utility>

#include "qnode/local_node_structure.h"
#include "qstd/exception.h"
#include "qstd/trace_fnc.h"

namespace qnode {

namespace {

/// The one text of all nodes of that name. A tree has many nodes and few names, so none is ever given up.
const std::string* Intern(const std::string& name) {
    static auto* const mutex = new std::mutex;
    static auto* const names = new std::unordered_set<std::string>;
    const std::lock_guard guard(*mutex);
    return &*names->insert(name).first;
}

[[noreturn]] void Unsupported(const TreeNode& node, const std::string& method) {
    throw qstd::Exception("Unsupported type: " + node.GetName() + " in method " + method);
}

}  // namespace

TreeNode::TreeNode(const std::string& name, unsigned long long flags) : m_name(Intern(name)), m_flags(flags) {
    if (name.find('/') != std::string::npos) {
        throw qstd::Exception("Bad node name \"" + name + "\": it holds a slash");
    }
}

std::mutex& TreeNode::StructureMutex() {
    static auto* const mutex = new std::mutex;
    return *mutex;
}

TreeNode* TreeNode::GetParentLocked() const noexcept {
    const LocalNodeStructure* const structure = GetStructure();
    return structure == nullptr ? nullptr : structure->m_parent;
}

void TreeNode::RefuseUnfit(const TreeNode& child) const {
    const std::string both = "Node \"" + child.GetName() + "\" cannot be added to \"" + GetName() + "\": ";
    if (GetStructure() == nullptr || child.GetStructure() == nullptr) {
        throw qstd::Exception(both + "a node without structure has no place in a tree");
    }
    if (child.GetName().empty()) {
        throw qstd::Exception(both + "it has no name");
    }
    for (const TreeNode* node = this; node != nullptr; node = node->GetParentLocked()) {
        if (node == &child) {
            throw qstd::Exception(both + "it is that node or one above it");
        }
    }
    if (const TreeNode* const parent = child.GetParentLocked()) {
        throw qstd::Exception(both + "it stands under \"" + parent->GetName() + "\"");
    }
    if (GetStructure()->FindChild(child.GetName()) != LocalNodeStructure::c_none) {
        throw qstd::Exception("Node \"" + GetName() + "\" already has a child \"" + child.GetName() + "\"");
    }
}

std::shared_ptr<TreeNode> TreeNode::Add(const std::shared_ptr<TreeNode>& child) {
    const std::lock_guard guard(StructureMutex());
    RefuseUnfit(*child);
    GetStructure()->Append(child);
    child->GetStructure()->m_parent = this;
    return child;
}

std::shared_ptr<TreeNode> TreeNode::Attach(const std::shared_ptr<TreeNode>& child) {
    Add(child);
    return shared_from_this();
}

std::vector<std::shared_ptr<TreeNode>> TreeNode::GetChildren() const {
    std::vector<std::shared_ptr<TreeNode>> children;
    if (const LocalNodeStructure* const structure = GetStructure()) {
        const std::size_t count = structure->CountChildren();
        children.reserve(count);
        for (std::size_t index = 0; index < count; ++index) {
            children.push_back(structure->GetChild(index));
        }
    }
    return children;
}

std::shared_ptr<TreeNode> TreeNode::FindChild(std::string_view name) const {
    const LocalNodeStructure* const structure = GetStructure();
    const std::size_t index = structure == nullptr ? LocalNodeStructure::c_none : structure->FindChild(name);
    return index == LocalNodeStructure::c_none ? nullptr : structure->GetChild(index);
}

TreeNode* TreeNode::FindBelow(std::string_view path) noexcept {
    TreeNode* node = this;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (name.empty()) {
            continue;
        }
        const LocalNodeStructure* const structure = node->GetStructure();
        const std::size_t index = structure == nullptr ? LocalNodeStructure::c_none : structure->FindChild(name);
        if (index == LocalNodeStructure::c_none) {
            return nullptr;
        }
        node = structure->GetChild(index).get();
    }
    return node;
}

std::shared_ptr<TreeNode> TreeNode::GetParent() const {
    const std::lock_guard guard(StructureMutex());
    TreeNode* const parent = GetParentLocked();
    // A parent whose last owner just let go waits for the mutex, to tell its children; it cannot be held any more.
    return parent == nullptr ? nullptr : parent->weak_from_this().lock();
}

std::string TreeNode::GetPath(const TreeNode** root) const {
    std::string path;
    const TreeNode* node = this;
    const std::lock_guard guard(StructureMutex());
    while (const TreeNode* const parent = node->GetParentLocked()) {
        path.insert(0, node->GetName());
        node = parent;
        if (node->GetParentLocked() != nullptr) {
            path.insert(0, 1, '/');
        }
    }
    if (root != nullptr) {
        *root = node;
    }
    return path;
}

unsigned long long TreeNode::OnGetFlags() const {
    return m_flags.load();
}

void TreeNode::OnSetFlags(unsigned long long flags) {
    m_flags |= flags;
}

enums::ValueType_e TreeNode::OnGetValueType(const std::string& /*path*/) const {
    return enums::ValueType_e::empty;
}

std::size_t TreeNode::OnGetSize(const std::string& /*path*/) const {
    return 0;
}

bool TreeNode::OnGet(std::string* /*value*/, std::size_t /*position*/, std::size_t /*count*/) const {
    Unsupported(*this, qstd::ThisFncName());
}

bool TreeNode::OnGet(double* /*value*/, std::size_t /*position*/, std::size_t /*count*/) const {
    Unsupported(*this, qstd::ThisFncName());
}

bool TreeNode::OnGet(int* /*value*/, std::size_t /*position*/, std::size_t /*count*/) const {
    Unsupported(*this, qstd::ThisFncName());
}

void TreeNode::OnSet(const std::string* /*value*/, std::size_t /*position*/, std::size_t /*count*/) {
    Unsupported(*this, qstd::ThisFncName());
}

void TreeNode::OnSet(const double* /*value*/, std::size_t /*position*/, std::size_t /*count*/) {
    Unsupported(*this, qstd::ThisFncName());
}

void TreeNode::OnSet(const int* /*value*/, std::size_t /*position*/, std::size_t /*count*/) {
    Unsupported(*this, qstd::ThisFncName());
}

}  // namespace qnode
