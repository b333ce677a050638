#pragma once

#include <string>
#include <vector>

#include "qreg/address_list.h"
#include "qreg/peer.h"

namespace qreg {

/// Clients of a registry server, named by their address, by the subject of their certificate, or by both. Immutable
/// after it was filled, so safe to read from any thread.
class ClientList {
public:
    /// Adds those at @p from whose certificate has the subject @p subject; an empty one of the two stands for any.
    /// @param from an address or a prefix as AddressList takes it
    /// @param subject in the very form that the transport gives the subjects of its peers
    /// @throws qstd::Exception when both are empty, and what AddressList::Add throws.
    void Add(const std::string& from, const std::string& subject = {});

    bool IsEmpty() const noexcept { return m_entries.empty(); }

    bool Contains(const Peer& peer) const;

private:
    struct Entry {
        AddressList addresses;  ///< empty: any
        std::string subject;    ///< empty: any, and none
    };

    std::vector<Entry> m_entries;
};

}  // namespace qreg
