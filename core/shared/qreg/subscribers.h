#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "qreg/subscription.h"

namespace qreg {

/// The subscriptions that there are at one time, and which of them want what is told at which path. Nodes tell again
/// and again, so what the patterns say of a path is found out once. Any thread.
class Subscribers {
public:
    using List = std::vector<std::shared_ptr<Subscription>>;
    using Audience = std::vector<Subscription*>;

    /// The most paths that are remembered; it bounds the memory.
    static constexpr std::size_t c_mostPaths = 16384;

    explicit Subscribers(List all) : m_all(std::move(all)) {}

    const List& GetAll() const noexcept { return m_all; }

    /// Those that want what is told at @p path. @param buffer holds them when they are not remembered
    const Audience& FindAudience(const std::string& path, Audience& buffer) const;

private:
    const List m_all;
    mutable std::mutex m_mutex;                                           ///< guards all below
    mutable std::set<Audience> m_audiences;                               ///< the different ones
    mutable std::unordered_map<std::string, const Audience*> m_audience;  ///< by path
};

}  // namespace qreg
