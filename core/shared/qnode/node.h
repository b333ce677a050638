#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "qnode/tree_node.h"

namespace qnode {

/// A node seen from outside: how callers walk a tree. Cheap to copy; it keeps its node alive. Any thread may use it.
class Node {
public:
    /// The most characters of one value that a dump shows.
    static constexpr std::size_t c_defMaxValueLen = 80;

    /// @param node not null
    explicit Node(std::shared_ptr<TreeNode> node) : m_node(std::move(node)) {}

    const std::shared_ptr<TreeNode>& Get() const noexcept { return m_node; }

    /// The node at @p path below this one: names separated by "/"; the empty path is the node itself.
    /// @throws qstd::Exception naming the path and the name that is not there.
    Node Find(const std::string& path) const;

    /// The subtree as text, a line a node, children indented below their parent.
    /// @param depth how many levels below this node; -1 for all
    /// @param mode 0; reserved for other forms
    /// @param maxValueLen the most characters of one value
    std::string DumpSubTree(int depth, int mode, std::size_t maxValueLen) const;

private:
    std::shared_ptr<TreeNode> m_node;
};

}  // namespace qnode
