#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include <registry.hh>

#include "qreg/access.h"

/// Replies that come in pages. Any thread.
namespace qreg::corba {

/// The most items of a page of a subtree.
constexpr std::size_t c_itemsPerPage = 5000;

/// The most children of one reply.
constexpr std::size_t c_childrenPerPage = 1000;

/// A part of a tree that a client asks for.
struct PageRequest {
    std::string_view path;
    std::size_t depth;
    std::size_t limit;  ///< of items; 0: none of the client's own
    std::string_view after;
    std::size_t room;                  ///< bytes that the items may take; one has room in any case
    std::function<void()> beforeEach;  ///< called before each node is read, which may take long; may throw
};

/// Walks and reads. A node that raises an error costs only its own item. @throws RegistryError as Access::Walk, and
/// what beforeEach throws.
void FillPage(const Access& access, const PageRequest& request, ::reg::Page& page);

/// Children of @p node from the one with index @p start.
void ListChildren(const qnode::TreeNode& node, std::size_t start, std::size_t room, ::reg::NodeInfoSeq& infos);

}  // namespace qreg::corba
