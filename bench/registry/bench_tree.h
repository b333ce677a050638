#pragma once

#include <memory>
#include <string>

#include "qnode/tree_node.h"

namespace bench {

/// A leaf that holds its number itself: what reading it costs is next to nothing.
std::shared_ptr<qnode::TreeNode> MakeNumber(const std::string& name, double value);

/// A board with sensors: sensors/ID_<n>/ with eleven leaves each.
std::shared_ptr<qnode::TreeNode> MakeBoard(const std::string& name, std::size_t sensors);

/// A tree of boards with sensors, shaped like that of a chassis: boards/B<n>/sensors/ID_<n>/ with eleven leaves each.
/// @param sensors a board @return the root
std::shared_ptr<qnode::TreeNode> MakeTree(std::size_t boards, std::size_t sensors);

/// Path of the value of a sensor of that tree.
std::string ValuePath(std::size_t board, std::size_t sensor);

}  // namespace bench
