#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "qnode/value.h"

namespace qnode {

class LocalNodeStructure;

/// A named object in a tree of them, made by factory::Create. Nodes live in shared pointers. A parent owns its
/// children; a child knows its parent only while that lives. The tree may be read from any thread, without a lock,
/// while another one adds to it. There may be hundreds of thousands of nodes: what every node holds is kept small.
class TreeNode : public std::enable_shared_from_this<TreeNode> {
public:
    /// @param name unique among its siblings; must not hold "/". @throws qstd::Exception naming it otherwise.
    /// @param flags bits whose meaning belongs to the node's class
    explicit TreeNode(const std::string& name, unsigned long long flags = 0);
    TreeNode(const TreeNode&) = delete;
    TreeNode& operator=(const TreeNode&) = delete;
    virtual ~TreeNode() = default;

    /// Stays good to the end of the process: equal names are one text.
    const std::string& GetName() const noexcept { return *m_name; }

    /// Appends @p child, which must not have a parent yet. @return the child as the tree holds it.
    /// @throws qstd::Exception naming both nodes when a child of that name is there already, when @p child has a
    ///         parent or no name, when it is this node or stands above it, or when either has no structure; nothing is
    ///         then changed.
    std::shared_ptr<TreeNode> Add(const std::shared_ptr<TreeNode>& child);

    /// Like Add, for chains of calls. @return the node it was called on.
    std::shared_ptr<TreeNode> Attach(const std::shared_ptr<TreeNode>& child);

    /// The children in the order in which they were added.
    std::vector<std::shared_ptr<TreeNode>> GetChildren() const;

    /// The child of that name, null when there is none.
    std::shared_ptr<TreeNode> FindChild(std::string_view name) const;

    /// The node at @p path below this one, null when there is none: names separated by "/", empty ones passed over; the
    /// empty path is this node. The pointer is good for as long as this node is held: nothing is ever taken out.
    TreeNode* FindBelow(std::string_view path) noexcept;

    /// The parent, null for a root.
    std::shared_ptr<TreeNode> GetParent() const;

    /// The names from below the root to this node, separated by "/"; empty for a root.
    /// @param root gets the root, unless null
    std::string GetPath(const TreeNode** root = nullptr) const;

    /// The node's place in the tree; null for a node that the factory did not make, which cannot be in a tree.
    virtual LocalNodeStructure* GetStructure() const noexcept { return nullptr; }

    /// Called once by the factory, when the node has its structure: here a node may add children of its own.
    /// @return whether the node is all there; false by a failure that it has told of itself
    virtual bool Init() { return true; }

    /// The flag word.
    virtual unsigned long long OnGetFlags() const;
    /// Sets the bits of @p flags; never clears one.
    virtual void OnSetFlags(unsigned long long flags);

    // The value. Any thread may call these at any time. @p path leads into the value and is empty for nodes that hold
    // one value; @p position and @p count choose elements of an array and are 0 and 1 then.

    /// The type of the value; ValueType_e::empty when the node has none.
    virtual enums::ValueType_e OnGetValueType(const std::string& path) const;
    /// The number of elements; 0 when the node has no value.
    virtual std::size_t OnGetSize(const std::string& path) const;

    /// Puts the value into @p value. @return false when there is none at present; @p value is then untouched.
    /// @throws qstd::Exception when the value is not of this type; anything when it cannot be had.
    virtual bool OnGet(std::string* value, std::size_t position, std::size_t count) const;
    virtual bool OnGet(double* value, std::size_t position, std::size_t count) const;
    virtual bool OnGet(int* value, std::size_t position, std::size_t count) const;

    /// Takes a new value. @throws qstd::Exception when this type cannot be set; anything when the value is refused or
    ///         could not be put in force.
    virtual void OnSet(const std::string* value, std::size_t position, std::size_t count);
    virtual void OnSet(const double* value, std::size_t position, std::size_t count);
    virtual void OnSet(const int* value, std::size_t position, std::size_t count);

private:
    friend class LocalNodeStructure;

    /// Guards who stands where in every tree of the process: parents, and the adding of children.
    static std::mutex& StructureMutex();

    /// The parent, under the mutex of structures. Null too for one that is just being destroyed.
    TreeNode* GetParentLocked() const noexcept;

    /// @throws qstd::Exception as Add says. Under the mutex of structures.
    void RefuseUnfit(const TreeNode& child) const;

    const std::string* const m_name;
    std::atomic<unsigned long long> m_flags;
};

}  // namespace qnode
