#include "qnode/node.h"

#include <utility>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qnode {

namespace {

// The depth of the recursion is that of the tree, which the program itself builds.
// NOLINTNEXTLINE(misc-no-recursion)
void Dump(const TreeNode& node, int level, int depth, std::string& text) {
    constexpr std::size_t c_indent = 2;
    text.append(static_cast<std::size_t>(level) * c_indent, ' ');
    text += node.GetName();
    text += '\n';
    if (depth >= 0 && level >= depth) {
        return;
    }
    for (const auto& child : node.GetChildren()) {
        Dump(*child, level + 1, depth, text);
    }
}

}  // namespace

Node Node::Find(const std::string& path) const {
    std::shared_ptr<TreeNode> node = m_node;
    for (const std::string& name : qstd::TokenizeString(path, '/')) {
        std::shared_ptr<TreeNode> child = node->FindChild(name);
        if (child == nullptr) {
            std::string text = "No node \"";
            text += name + "\" under \"" + node->GetName();
            text += "\" (path \"" + path + "\")";
            throw qstd::Exception(std::move(text), true);
        }
        node = std::move(child);
    }
    return Node(std::move(node));
}

std::string Node::DumpSubTree(int depth, int /*mode*/, std::size_t /*maxValueLen*/) const {
    std::string text;
    Dump(*m_node, 0, depth, text);
    return text;
}

}  // namespace qnode
