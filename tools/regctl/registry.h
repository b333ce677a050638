#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/corba/client.h"
#include "qreg/subscriptions.h"

namespace regctl {

/// The registry as the commands use it. Operations, and what they throw, are those of qreg::corba::Client; one thread.
class Registry {
public:
    Registry() = default;
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;
    virtual ~Registry() = default;

    virtual qreg::NodeInfo Describe(const std::string& path) = 0;
    virtual std::vector<qreg::NodeInfo> Children(const std::string& path) = 0;
    virtual std::vector<qreg::Outcome> GetMany(const std::vector<std::string>& paths) = 0;
    virtual void Subtree(const std::string& path, const std::function<void(const qreg::corba::TreeItem&)>& visit) = 0;
    virtual void Set(const std::string& path, const qnode::Value& value) = 0;
    virtual qreg::Lease Subscribe(const qreg::Filter& filter) = 0;
    virtual qreg::Batch Poll(const std::string& id, std::uint64_t received, std::size_t max,
                             std::chrono::milliseconds wait) = 0;
    virtual void Unsubscribe(const std::string& id) = 0;

    /// Ends a subscription on which another thread may be polling. @return whether that worked. Any thread.
    virtual bool EndPolls(const std::string& id) = 0;
};

}  // namespace regctl
