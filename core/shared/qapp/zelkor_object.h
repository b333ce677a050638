#pragma once

#include <memory>
#include <string>

#include "qnode/tree_node.h"

namespace qapp {

/// An object of an application that takes part in the application's life through hooks. The framework calls the hooks
/// on its main thread, each at most once in a life: OnPreInit, OnPreConfig, OnPostConfig, OnPostInit, OnStartRunning,
/// OnAcceptRequests, OnShutdown; OnRegistryAdd and OnQueryChild come whenever there is something to ask. Every hook is
/// empty unless said otherwise.
class ZelkorObject {
public:
    ZelkorObject() = default;
    ZelkorObject(const ZelkorObject&) = delete;
    ZelkorObject& operator=(const ZelkorObject&) = delete;
    virtual ~ZelkorObject() = default;

    /// A node is about to be added to the registry; the hook may put another one in its place.
    virtual void OnRegistryAdd(std::shared_ptr<qnode::TreeNode>& node);
    /// The command line was read, nothing else was done yet.
    virtual void OnPreInit() {}
    /// Configuration, log and boards are ready; no request is served yet.
    virtual void OnPostInit() {}
    /// The configuration is about to be loaded.
    virtual void OnPreConfig() {}
    /// The configuration was loaded.
    virtual void OnPostConfig() {}
    /// The start is complete; the main loop comes next.
    virtual void OnStartRunning() {}
    /// From here on requests are served.
    virtual void OnAcceptRequests() {}
    /// The application was asked to stop.
    virtual void OnShutdown() {}
    /// Whether @p child may become a part of this object; yes by default.
    virtual bool OnQueryChild(const ZelkorObject& child);
    /// The object's name; empty by default.
    virtual std::string OnGetName() const;
};

}  // namespace qapp
