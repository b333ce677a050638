#pragma once

#include <registry.hh>
#include <string>
#include <utility>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/error.h"
#include "qreg/subscriptions.h"

// Between the wire contract's types and those of the program, as a client needs it.
namespace qreg::corba::client {

/// A type that this program does not know becomes the text "(unknown type N)".
qnode::Value ToValue(const reg::Value& value);
Outcome ToOutcome(const reg::Outcome& outcome);
/// A value, or why there is none.
Outcome ToOutcome(const reg::Value& value);
/// That of one node of a subtree.
Outcome ToOutcome(const reg::Item& item);
NodeInfo ToNodeInfo(const reg::NodeInfo& info);
Batch ToBatch(const reg::Batch& batch);

/// An outcome as a view gives it: NaN unless it is a number.
std::pair<double, ErrorCode_e> ToReading(const Outcome& outcome);

/// @throws RegistryError limit when the path cannot be sent.
const char* ToPath(const std::string& path);

/// @throws RegistryError, naming @p path, when the value cannot be sent.
reg::NewValue ToNewValue(const std::string& path, const qnode::Value& value);

}  // namespace qreg::corba::client
