#pragma once

#include <cstddef>
#include <string>

#include <registry.hh>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/error.h"
#include "qreg/subscriptions.h"

/// Between the types of this program and those of the wire. Any thread.
namespace qreg::corba {

/// The most bytes of a text that explains an error.
constexpr std::size_t c_longestText = 4096;

void ToWire(const qnode::Value& value, ::reg::Value& wire);
void ToWire(const NodeInfo& info, ::reg::NodeInfo& wire);
void ToWire(const Event& event, ::reg::Event& wire);
void ToWire(const Lease& lease, ::reg::Lease& wire);
::reg::Error ToWire(const RegistryError& error);
::reg::Time ToWire(std::chrono::system_clock::time_point time);

/// The time now.
::reg::Time Now();

/// An outcome or an item of a subtree: code, text and value.
void ToWire(const Outcome& outcome, ::reg::Outcome& wire);
/// The value, or why it could not be had.
void ToWire(const Outcome& outcome, ::reg::Value& wire);

/// @throws RegistryError wrong_type for a value of a type that is not known.
qnode::Value FromWire(const ::reg::NewValue& wire);

Filter FromWire(const ::reg::Filter& wire);

/// @p text cut to at most @p size bytes, between characters.
void Shorten(std::string& text, std::size_t size);

// The most bytes that each takes on the wire.
std::size_t SizeOf(const Outcome& outcome) noexcept;
std::size_t SizeOf(const NodeInfo& info) noexcept;
std::size_t SizeOf(const Event& event) noexcept;

/// What an outcome takes besides its texts.
constexpr std::size_t c_outcomeSize = 32;

}  // namespace qreg::corba
