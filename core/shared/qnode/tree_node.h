#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qnode {

/// A named object in a tree of them. Nodes live in shared pointers. A parent owns its children; a child knows its
/// parent only while that lives. The structure may be read from any thread while another one adds to it.
class TreeNode : public std::enable_shared_from_this<TreeNode> {
public:
    /// @param name unique among its siblings; must not be empty nor hold "/". @throws qstd::Exception otherwise.
    /// @param flags free bits whose meaning belongs to the node's class
    explicit TreeNode(std::string name, std::uint64_t flags = 0);
    TreeNode(const TreeNode&) = delete;
    TreeNode& operator=(const TreeNode&) = delete;
    virtual ~TreeNode() = default;

    const std::string& GetName() const noexcept { return m_name; }

    /// Appends @p child, which must not have a parent yet. @return the child.
    /// @throws qstd::Exception naming both nodes when a child of that name is there already, when @p child has a
    /// parent,
    ///         or when it is this node or stands above it; nothing is then changed.
    std::shared_ptr<TreeNode> Add(const std::shared_ptr<TreeNode>& child);

    /// Like Add, for chains of calls. @return the node it was called on.
    std::shared_ptr<TreeNode> Attach(const std::shared_ptr<TreeNode>& child);

    /// The children in the order in which they were added.
    std::vector<std::shared_ptr<TreeNode>> GetChildren() const;

    /// The child of that name, null when there is none.
    std::shared_ptr<TreeNode> FindChild(const std::string& name) const;

    /// The parent, null for a root.
    std::shared_ptr<TreeNode> GetParent() const;

    /// The flag word.
    virtual std::uint64_t OnGetFlags() const;
    /// Sets the bits of @p flags; never clears one.
    virtual void OnSetFlags(std::uint64_t flags);

private:
    /// @throws qstd::Exception when @p child is this node or one above it.
    void RefuseLoop(const TreeNode& child) const;

    const std::string m_name;
    mutable std::mutex m_mutex;  ///< guards all below; a child's mutex may be taken while the parent's is held
    std::uint64_t m_flags;
    std::vector<std::shared_ptr<TreeNode>> m_children;
    std::weak_ptr<TreeNode> m_parent;
};

}  // namespace qnode
