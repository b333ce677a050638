#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/regctl/registry.h"

/// A registry in memory: nodes in the order of a walk, and scripted polls.
class FakeRegistry final : public regctl::Registry {
public:
    /// A node that only has children.
    FakeRegistry& Add(const std::string& path);
    /// A node with a value.
    FakeRegistry& Add(const std::string& path, const qnode::Value& value, unsigned long long flags = 2);
    /// A node that cannot be read.
    FakeRegistry& AddFailing(const std::string& path, qreg::ErrorCode_e code, const std::string& text);

    /// What the next polls give, one each; then they are empty.
    std::vector<std::function<qreg::Batch()>> polls;

    // What was asked.
    qreg::Filter filter;
    std::vector<std::uint64_t> received;  ///< of each poll
    std::vector<std::chrono::milliseconds> waits;
    std::vector<std::pair<std::string, qnode::Value>>* sets = nullptr;  ///< outlives this object
    int unsubscribed = 0;

    qreg::NodeInfo Describe(const std::string& path) override;
    std::vector<qreg::NodeInfo> Children(const std::string& path) override;
    std::vector<qreg::Outcome> GetMany(const std::vector<std::string>& paths) override;
    void Subtree(const std::string& path, const std::function<void(const qreg::corba::TreeItem&)>& visit) override;
    void Set(const std::string& path, const qnode::Value& value) override;
    qreg::Lease Subscribe(const qreg::Filter& wanted) override;
    qreg::Batch Poll(const std::string& id, std::uint64_t last, std::size_t max,
                     std::chrono::milliseconds wait) override;
    void Unsubscribe(const std::string& id) override;
    bool EndPolls(const std::string& id) override;

private:
    const qreg::corba::TreeItem& Find(const std::string& path) const;

    std::vector<qreg::corba::TreeItem> m_items;  // depth: from the root
};

/// A batch with a value event for each sequence number.
qreg::Batch MakeBatch(std::uint64_t lost, const std::vector<std::uint64_t>& sequences);
