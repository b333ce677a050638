#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/client_list.h"
#include "qreg/error.h"
#include "qreg/limited_log.h"
#include "qreg/peer.h"
#include "qreg/value_before.h"
#include "qreg/write_turns.h"

namespace qreg {

/// The tree for clients that are known by address and certificate: who may read and write, and what the log tells.
/// Every write that reached a node has a line of its own there, whatever came of it; of the requests that were refused
/// at most a few a minute have. Any thread, many at once.
class GuardedAccess {
public:
    static constexpr std::chrono::milliseconds c_patience{2000};

    /// @param access outlives this object
    /// @param mayRead clients that may read, besides those in @p mayWrite; empty: every client
    /// @param mayWrite clients that may write; empty: every client that may read
    /// @param patience how long a write may be kept waiting for the value before
    GuardedAccess(const Access& access, ClientList mayRead, ClientList mayWrite,
                  std::chrono::milliseconds patience = c_patience);

    /// Whether there are clients that RefuseToRead would refuse.
    bool RestrictsReading() const noexcept { return !m_mayRead.IsEmpty(); }

    /// @param path what is to be read, empty when the request names none
    /// @throws RegistryError denied, after a word in the log, when @p peer may not read.
    void RefuseToRead(const Peer& peer, std::string_view path) const;

    /// Access::Write for those who may, one at a time for a node. The log gets the value before, which is read first,
    /// and "unknown" where that takes too long or fails. Never throws but for want of memory.
    Outcome Write(const Peer& peer, std::string_view path, const qnode::Value& value) const;

    /// Tells, with the refusals, of a write that was none.
    void TellRefusal(const Peer& peer, std::string_view path, const std::string& value,
                     const std::string& reason) const;

    /// Tells what was counted of the refusals since the last one that has a line.
    void Flush() const { m_refusals.Flush(); }

private:
    bool MayRead(const Peer& peer) const;
    bool MayWrite(const Peer& peer) const;

    /// What the node holds, for the log.
    std::string ValueBeforeText(std::string_view path) const;

    const Access& m_access;
    const ClientList m_mayRead;
    const ClientList m_mayWrite;
    mutable ValueBefore m_before;
    mutable WriteTurns m_turns;
    mutable LimitedLog m_refusals;
};

}  // namespace qreg
