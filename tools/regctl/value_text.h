#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "qnode/value.h"
#include "qreg/access.h"

// Values and what is said of them, as texts.
namespace regctl {

/// In one line; a double in as few digits as read back to the same value.
std::string ValueText(const qnode::Value& value);

/// The value, or in parentheses why there is none.
std::string OutcomeText(const qreg::Outcome& outcome);

/// Why there is no value: "no value", or what the node or server said.
std::string FailureText(const qreg::Outcome& outcome);

/// What a word of the command line means: a double when it reads as a number ("nan" and "inf" too), else a text.
qnode::Value ParseValue(const std::string& word);

/// "double", "string", ...; "type-99" for one that has no name.
std::string TypeText(qnode::enums::ValueType_e type);

/// "value", "threshold", "present"; "type-99" for one that has no name.
std::string EventTypeText(std::uint16_t type);

/// The number, and in parentheses what it means.
std::string FlagsText(unsigned long long flags);

bool IsReadable(unsigned long long flags);
bool IsWritable(unsigned long long flags);

/// Local time as YYYY/MM/DD hh:mm:ss.mmm.
std::string TimeText(std::chrono::system_clock::time_point time);

}  // namespace regctl
