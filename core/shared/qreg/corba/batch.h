#pragma once

#include <cstddef>
#include <string>

#include <registry.hh>

#include "qreg/subscriptions.h"

namespace qreg::corba {

/// How events go over the wire. Any thread.
struct BatchFormat {
    std::string bootId;
    std::size_t room = 0;  ///< bytes that the events of one batch may take

    /// The first events of @p batch that have room, at least one; those that have not come with the next poll.
    void ToWire(const Batch& batch, ::reg::Batch& wire) const;
};

}  // namespace qreg::corba
