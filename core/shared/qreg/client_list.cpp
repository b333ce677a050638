#include "qreg/client_list.h"

#include <algorithm>
#include <utility>

#include "qstd/exception.h"

namespace qreg {

void ClientList::Add(const std::string& from, const std::string& subject) {
    if (from.empty() && subject.empty()) {
        throw qstd::Exception("Clients must be named by an address or by the subject of a certificate");
    }
    Entry entry{{}, subject};
    if (!from.empty()) {
        entry.addresses.Add(from);
    }
    m_entries.push_back(std::move(entry));
}

bool ClientList::Contains(const Peer& peer) const {
    return std::any_of(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
        return (entry.subject.empty() || entry.subject == peer.subject) &&
               (entry.addresses.IsEmpty() || entry.addresses.Contains(peer.address));
    });
}

}  // namespace qreg
