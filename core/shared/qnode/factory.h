#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "qnode/local_node_structure.h"
#include "qnode/tree_node.h"

/// How nodes are made: a node and its place in the tree come as one object.
namespace qnode::factory {

/// A T together with its structure.
template <class Structure, class T>
class Structured final : public T {
public:
    template <class... Args>
    explicit Structured(Args&&... args) : T(std::forward<Args>(args)...) {}

    LocalNodeStructure* GetStructure() const noexcept override { return &m_structure; }

private:
    mutable Structure m_structure;
};

/// Makes a T of @p args in a structure of its own and calls its Init, whose answer does not matter here.
/// @throws whatever the constructor of T or Init throws.
template <class Structure, class T, class... Args>
std::shared_ptr<TreeNode> Create(Args&&... args) {
    static_assert(std::is_base_of_v<LocalNodeStructure, Structure>);
    static_assert(std::is_base_of_v<TreeNode, T>);
    auto node = std::make_shared<Structured<Structure, T>>(std::forward<Args>(args)...);
    node->Init();
    return node;
}

/// Short form for a plain node of class T that only has a name.
template <class T>
std::shared_ptr<TreeNode> Create(const char* name) {
    return Create<LocalNodeStructure, T>(name);
}

}  // namespace qnode::factory
