#pragma once

#include <string>
#include <vector>

#include "qreg/corba/client.h"

namespace regctl {

using TreeItem = qreg::corba::TreeItem;

/// A node's line in a pipe, with its newline: indented by its depth, "name = value" or, for one that has no value that
/// clients may read, "name". The root of all has no line, and the nodes below it are not indented.
std::string PlainTreeLine(const TreeItem& item, bool isFromRoot);

/// A subtree for the eye: values of siblings stand in a column. A sensor is one line with its name, its reading with
/// the units and the threshold that it is beyond; where the subtree is a sensor, its values have a line each.
/// @param items in the order of the walk
/// @param hasColour whether crossed thresholds are coloured
std::string TerminalTree(const std::vector<TreeItem>& items, bool hasColour);

}  // namespace regctl
