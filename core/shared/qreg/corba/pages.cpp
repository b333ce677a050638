#include "qreg/corba/pages.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "qnode/local_node_structure.h"
#include "qreg/corba/room.h"
#include "qreg/corba/wire.h"
#include "qreg/reg_node.h"

namespace qreg::corba {

namespace {

struct Place {
    const qnode::TreeNode* node;
    std::uint16_t depth;
};

constexpr std::size_t c_itemSize = 16;  ///< what an item takes besides its info and its outcome

/// A node that cannot be described still has a name.
NodeInfo DescribeAnyhow(const qnode::TreeNode& node, Outcome& outcome) {
    try {
        return Access::Describe(node);
    } catch (const RegistryError& error) {
        outcome = Outcome{error.GetCode(), {}, error.what()};
        NodeInfo info;
        info.name = node.GetName();
        return info;
    }
}

/// Containers are told by their code; a text for each would be half of what goes over the wire.
Outcome ReadOne(const qnode::TreeNode& node, const NodeInfo& info) {
    return (info.flags & RegNode::c_readable) == 0 ? Outcome{ErrorCode_e::not_readable, {}, {}} : Access::Read(node);
}

/// Paths of nodes but that of the root, which is empty.
std::string PathOrSlash(const qnode::TreeNode& node) {
    const std::string path = node.GetPath();
    return path.empty() ? "/" : path;
}

}  // namespace

void FillPage(const Access& access, const PageRequest& request, ::reg::Page& page) {
    const std::size_t most = request.limit == 0 ? c_itemsPerPage : std::min(request.limit, c_itemsPerPage);
    // The sequence is given its length once: making it longer would copy what it holds.
    std::vector<Place> places;
    const bool isWhole = access.Walk(request.path, request.depth, request.after, [&](const Access::Step& step) {
        constexpr std::size_t c_deepest = std::numeric_limits<std::uint16_t>::max();
        if (places.size() == most) {
            return false;
        }
        places.push_back({&step.node, static_cast<std::uint16_t>(std::min(step.depth, c_deepest))});
        return true;
    });
    page.items.length(static_cast<CORBA::ULong>(places.size()));
    Room room(request.room);
    CORBA::ULong count = 0;
    for (const Place& place : places) {
        request.beforeEach();
        Outcome outcome;
        const NodeInfo info = DescribeAnyhow(*place.node, outcome);
        if (outcome.code == ErrorCode_e::ok) {
            outcome = ReadOne(*place.node, info);
        }
        Shorten(outcome.text, c_longestText);
        if (!room.Take(c_itemSize + SizeOf(info) + SizeOf(outcome)) && count > 0) {
            break;
        }
        ::reg::Item& item = page.items[count++];
        item.depth = place.depth;
        ToWire(info, item.info);
        if (outcome.code == ErrorCode_e::not_readable) {
            item.val.none(0);
        } else {
            ToWire(outcome, item.val);
        }
    }
    if (!isWhole || count < places.size()) {
        page.items.length(count);
        page.next = PathOrSlash(*places[count - 1].node).c_str();
    }
}

void ListChildren(const qnode::TreeNode& node, std::size_t start, std::size_t room, ::reg::NodeInfoSeq& infos) {
    const qnode::LocalNodeStructure* const structure = node.GetStructure();
    const std::size_t all = structure == nullptr ? 0 : structure->CountChildren();
    const std::size_t most = start < all ? std::min(all - start, c_childrenPerPage) : 0;
    infos.length(static_cast<CORBA::ULong>(most));
    Room left(room);
    CORBA::ULong count = 0;
    while (count < most) {
        Outcome ignored;
        const NodeInfo info = DescribeAnyhow(*structure->GetChild(start + count), ignored);
        if (!left.Take(SizeOf(info)) && count > 0) {
            break;
        }
        ToWire(info, infos[count++]);
    }
    infos.length(count);
}

}  // namespace qreg::corba
