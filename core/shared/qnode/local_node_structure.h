#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace qnode {

class TreeNode;

/// A node's place in a tree of this process: its children, in the order in which they were added, and its parent.
/// Children are only ever added. Reading takes no lock and may go on in any thread while another one adds; adding is
/// TreeNode's, one at a time in the whole process.
class LocalNodeStructure {
public:
    LocalNodeStructure() = default;
    LocalNodeStructure(const LocalNodeStructure&) = delete;
    LocalNodeStructure& operator=(const LocalNodeStructure&) = delete;
    ~LocalNodeStructure();

    static constexpr std::size_t c_none = static_cast<std::size_t>(-1);

    std::size_t CountChildren() const noexcept;

    /// The child at @p index, which must be less than a count seen before. The reference stays good for the life of
    /// this object.
    const std::shared_ptr<TreeNode>& GetChild(std::size_t index) const noexcept;

    /// The index of the child of that name; c_none when there is none.
    std::size_t FindChild(std::string_view name) const noexcept;

private:
    friend class TreeNode;

    struct Children;

    /// Appends a child whose name is not there yet. Under TreeNode's mutex of structures.
    void Append(const std::shared_ptr<TreeNode>& child);

    std::atomic<Children*> m_children{nullptr};  ///< owned
    TreeNode* m_parent = nullptr;                ///< guarded by TreeNode's mutex of structures
};

}  // namespace qnode
