#include "qnode/local_node_structure.h"

#include <functional>
#include <mutex>

#include "qnode/tree_node.h"

namespace qnode {

namespace {

/// So many children are found quickest by comparing the hashes of their names one after another.
constexpr std::size_t c_firstCapacity = 12;

std::uint32_t HashOf(std::string_view name) noexcept {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(name));
}

}  // namespace

/// An array that is filled from the front. When it is full a larger one takes its place; the smaller stays for those
/// who still read it.
struct LocalNodeStructure::Children {
    explicit Children(std::size_t theCapacity)
        : capacity(theCapacity),
          nodes(std::make_unique<std::shared_ptr<TreeNode>[]>(theCapacity)),
          hashes(std::make_unique<std::uint32_t[]>(theCapacity)) {
        if (capacity > c_firstCapacity) {
            constexpr std::size_t c_room = 2;
            std::size_t places = 1;
            while (places < c_room * capacity) {
                places *= 2;
            }
            table = std::make_unique<std::atomic<std::uint32_t>[]>(places);
            mask = places - 1;
        }
    }

    void Append(const std::shared_ptr<TreeNode>& node) {
        const std::size_t index = size.load(std::memory_order_relaxed);
        const std::uint32_t hash = HashOf(node->GetName());
        nodes[index] = node;
        hashes[index] = hash;
        if (table) {
            std::size_t place = hash & mask;
            while (table[place].load(std::memory_order_relaxed) != 0) {
                place = (place + 1) & mask;
            }
            table[place].store(static_cast<std::uint32_t>(index + 1), std::memory_order_release);
        }
        size.store(index + 1, std::memory_order_release);
    }

    bool IsAt(std::size_t index, std::uint32_t hash, std::string_view name) const noexcept {
        return hashes[index] == hash && nodes[index]->GetName() == name;
    }

    std::size_t Find(std::string_view name) const noexcept {
        const std::uint32_t hash = HashOf(name);
        if (table) {
            std::size_t place = hash & mask;
            while (const std::uint32_t number = table[place].load(std::memory_order_acquire)) {
                if (IsAt(number - 1, hash, name)) {
                    return number - 1;
                }
                place = (place + 1) & mask;
            }
            return c_none;
        }
        const std::size_t count = size.load(std::memory_order_acquire);
        for (std::size_t index = 0; index < count; ++index) {
            if (IsAt(index, hash, name)) {
                return index;
            }
        }
        return c_none;
    }

    const std::size_t capacity;
    std::atomic<std::size_t> size{0};
    std::unique_ptr<std::shared_ptr<TreeNode>[]> nodes;
    std::unique_ptr<std::uint32_t[]> hashes;              ///< of the names, by index
    std::unique_ptr<std::atomic<std::uint32_t>[]> table;  ///< of many children: index + 1 by hash, 0 is free
    std::size_t mask = 0;                                 ///< places of the table - 1
    std::unique_ptr<Children> smaller;
};

LocalNodeStructure::~LocalNodeStructure() {
    const std::unique_ptr<Children> children(m_children.load());
    if (!children) {
        return;
    }
    const std::lock_guard guard(TreeNode::StructureMutex());
    const std::size_t count = CountChildren();
    for (std::size_t index = 0; index < count; ++index) {
        GetChild(index)->GetStructure()->m_parent = nullptr;
    }
}

std::size_t LocalNodeStructure::CountChildren() const noexcept {
    const Children* const children = m_children.load(std::memory_order_acquire);
    return children == nullptr ? 0 : children->size.load(std::memory_order_acquire);
}

const std::shared_ptr<TreeNode>& LocalNodeStructure::GetChild(std::size_t index) const noexcept {
    return m_children.load(std::memory_order_acquire)->nodes[index];
}

std::size_t LocalNodeStructure::FindChild(std::string_view name) const noexcept {
    const Children* const children = m_children.load(std::memory_order_acquire);
    return children == nullptr ? c_none : children->Find(name);
}

void LocalNodeStructure::Append(const std::shared_ptr<TreeNode>& child) {
    Children* children = m_children.load(std::memory_order_relaxed);
    if (children == nullptr || children->size.load(std::memory_order_relaxed) == children->capacity) {
        auto larger = std::make_unique<Children>(children == nullptr ? c_firstCapacity : 2 * children->capacity);
        const std::size_t count = children == nullptr ? 0 : children->capacity;
        for (std::size_t index = 0; index < count; ++index) {
            larger->Append(children->nodes[index]);
        }
        larger->Append(child);
        larger->smaller.reset(children);
        m_children.store(larger.release(), std::memory_order_release);
        return;
    }
    children->Append(child);
}

}  // namespace qnode
