#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "qnode/notification.h"
#include "qnode/tree_node.h"
#include "qstd/any.h"

namespace qnode {

/// A node seen from outside: how callers walk a tree, read values and make nodes tell. Cheap to copy; it keeps its node
/// alive. Any thread may use it.
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

    /// Puts the node's value into @p value, which is an int, a double or a std::string as the node's value type says.
    /// @param position element of an array; 0 for one value
    /// @return false when there is no value at present; @p value is then untouched.
    /// @throws whatever the node throws; qstd::Exception when its value is of another type.
    template <class T>
    bool GetValue(T& value, std::size_t position = 0) const {
        return std::as_const(*m_node).OnGet(&value, position, 1);
    }

    /// The node's value, whatever its type. @return false when there is none at present, or the node never has one.
    /// @throws whatever the node throws.
    bool GetValue(Value& value) const;

    /// Makes the node tell: everyone who listens to its tree learns of @p type and @p value. Never waits for one who
    /// listens.
    void Emit(NotificationType type, const qstd::Any& value) const {
        if (Listening::IsAnyInterested()) {
            Listening::Tell(*m_node, type, value);
        }
    }

    /// The subtree as text, a line a node, children indented below their parent: the name and, where the node has one,
    /// " = " and the value, "(no value)" when there is none at present, or the text of what went wrong.
    /// @param depth how many levels below this node; -1 for all
    /// @param mode 0; reserved for other forms
    /// @param maxValueLen the most bytes of one value; the rest of a longer one is cut
    std::string DumpSubTree(int depth, int mode, std::size_t maxValueLen) const;

private:
    std::shared_ptr<TreeNode> m_node;
};

/// The value of @p node, as Node::GetValue.
bool ReadValue(const TreeNode& node, Value& value);

}  // namespace qnode
