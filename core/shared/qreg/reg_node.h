#pragma once

#include <cstddef>
#include <string>

#include "qnode/tree_node.h"

namespace qreg {

/// A node of the registry: what programs outside see of this one, by its path. Without overridden operations it is a
/// container. A class that holds a value overrides the operations for its type and says by the flags what clients may
/// do with it. Any thread may call any operation, the server's threads do.
class RegNode : public qnode::TreeNode {
public:
    // Flags. Bit 0 has no meaning yet.
    /// Bit 1: the node has a value, which clients may read.
    static constexpr unsigned long long c_readable = 1ULL << 1U;
    /// Bit 2: clients may write the value.
    static constexpr unsigned long long c_writable = 1ULL << 2U;

    /// @param flags any of the above
    explicit RegNode(const std::string& name, unsigned long long flags = 0) : TreeNode(name, flags) {}

    /// Gives the node a new value of its own type, or a text that it converts. The flags do not matter here: they are
    /// for clients.
    /// @param position element of an array; 0 for one value
    /// @param path leads to a node below this one; empty: this node
    /// @throws qstd::Exception when @p path leads nowhere or the node takes no value of this type; whatever the node
    ///         throws when it refuses the value.
    void Set(double value, std::size_t position = 0, const std::string& path = {});
    void Set(int value, std::size_t position = 0, const std::string& path = {});
    void Set(const std::string& value, std::size_t position = 0, const std::string& path = {});

private:
    qnode::TreeNode& Below(const std::string& path);
};

}  // namespace qreg
