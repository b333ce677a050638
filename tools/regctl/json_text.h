#pragma once

#include <string>
#include <vector>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/corba/client.h"
#include "qreg/subscriptions.h"

// What the commands print with --json, one line each without a newline. Texts are given as they are; bytes that are no
// UTF-8 become the replacement character. Numbers that JSON does not know are "nan", "inf" and "-inf".
namespace regctl {

/// An array of names.
std::string ChildrenJson(const std::vector<qreg::NodeInfo>& children);

/// An object with path, type, flags, and value or error and code.
std::string ItemJson(const qreg::corba::TreeItem& item);

/// An object with path, and type and value, or error and code.
std::string OutcomeJson(const std::string& path, const qreg::Outcome& outcome);

std::string AssignmentJson(const std::string& path, const qnode::Value& value);
std::string InfoJson(const std::string& path, const qreg::NodeInfo& info);
std::string EventJson(const qreg::Event& event);

}  // namespace regctl
