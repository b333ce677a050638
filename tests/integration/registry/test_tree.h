#pragma once

#include <cstddef>
#include <memory>

#include "qnode/tree_node.h"

namespace test {

/// The tree of the tests' registry server.
///
///     values/number  1.5            values/whole   7
///     values/text    "grün"         values/nothing has no value now
///     values/broken  raises "the bus is stuck"
///     values/slow    takes 300 ms   values/hidden  not for clients
///     values/long    a text of 70000 bytes
///     knobs/speed    a number; refuses more than 10000; tells of each change, type value
///     knobs/steps    a whole number                knobs/label  a text
///     knobs/stiff    a number; a write takes 400 ms
///     many/leaf_0 .. many/leaf_N    numbers: their index
///     texts/text_0 .. text_99       60000 characters each
std::shared_ptr<qnode::TreeNode> MakeTestTree(std::size_t leaves);

}  // namespace test
