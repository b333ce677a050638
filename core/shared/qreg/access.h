#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "qnode/tree_node.h"
#include "qnode/value.h"
#include "qreg/error.h"

namespace qreg {

/// What reading or writing one node came to.
struct Outcome {
    ErrorCode_e code = ErrorCode_e::ok;
    qnode::Value value;  ///< what was read; empty unless ok
    std::string text;    ///< what went wrong, complete; empty when ok
};

/// What a client may know of a node besides its value.
struct NodeInfo {
    std::string name;
    unsigned long long flags = 0;
    qnode::enums::ValueType_e type{};
    std::size_t size = 0;      ///< elements of the value
    std::size_t children = 0;  ///< number of them
};

/// What clients do with the tree, whatever the transport: every rule of reading and writing from outside stands here.
/// Knows nothing of who asks. Any thread, many at once; takes no lock of its own.
class Access {
public:
    /// The most bytes of a text that can be passed on to a client.
    static constexpr std::size_t c_longestText = 65535;

    explicit Access(std::shared_ptr<qnode::TreeNode> root);

    const std::shared_ptr<qnode::TreeNode>& GetRoot() const noexcept { return m_root; }

    /// The node. @throws RegistryError no_such_node.
    qnode::TreeNode& Find(std::string_view path) const;

    /// @throws RegistryError failed when the node raises an error at being asked.
    static NodeInfo Describe(const qnode::TreeNode& node);

    /// The node's value. Never throws but for want of memory: what went wrong is in the outcome.
    static Outcome Read(const qnode::TreeNode& node);

    /// The same by path.
    Outcome Read(std::string_view path) const;

    /// The value of a node that clients may write; of any other, and of none, an outcome that is not ok without asking
    /// for a value.
    Outcome ReadBeforeWrite(std::string_view path) const;

    /// Gives the node a value: one of its own type, a whole number for a double, a double without fraction that fits
    /// for an integer, or a text that the node converts itself. Never throws but for want of memory.
    static Outcome Write(qnode::TreeNode& node, const qnode::Value& value);

    /// The same by path.
    Outcome Write(std::string_view path, const qnode::Value& value) const;

    /// One node of a walk.
    struct Step {
        const qnode::TreeNode& node;
        std::size_t depth;      ///< 0: the node where the walk began
        std::string_view path;  ///< from below the root of the tree
    };

    /// Walks the subtree at @p path, parents before their children, children in their order. The tree may grow
    /// meanwhile.
    /// @param depth how many levels below the node at @p path
    /// @param after path of the last node of an earlier walk that is to be taken up again ("/" for the root); empty:
    ///        from the begin
    /// @param visit called for each node; false ends the walk
    /// @return whether the walk came to its end
    /// @throws RegistryError no_such_node for either path, or when @p after is not below @p path.
    bool Walk(std::string_view path, std::size_t depth, std::string_view after,
              const std::function<bool(const Step&)>& visit) const;

private:
    const std::shared_ptr<qnode::TreeNode> m_root;
};

}  // namespace qreg
