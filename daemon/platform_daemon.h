#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qapp/zelkor_application.h"
#include "qnode/tree_node.h"

/// The platform daemon of the chassis: starts and stops the workers.
class PlatformDaemon : public qapp::ZelkorApplication {
public:
    PlatformDaemon();
    ~PlatformDaemon() override;

    /// "zelkor-platformd"
    const std::string& ApplicationName() const override;

    /// Default TCP port of the registry server.
    int DefaultPort() const override;

    /// Null for every board: the daemon keeps no framework board objects of its own.
    qapp::ZelkorBoard* CreateBoard(const bmc::Board* board) override;

    /// The rules of the workers' sections.
    std::vector<qcfg::ElementRule> GetSectionRules() const override;

    /// Proves the workers' sections on the chassis.
    void OnCheckConfig(qcfg::Findings& findings) override;

    /// Builds the registry tree, writes it to the trace and starts the workers.
    void OnPostInit() override;

    /// Stops the workers and leaves the fans at maximum speed. The workers end on their own; each is joined when it is
    /// destroyed, after `main` has returned. @throws what the fans' node throws, which is about the fan controller.
    void OnShutdown() override;

    /// Builds the registry tree from the boards and sensors that the pool knows: "boards" and "fans". The tree never
    /// changes after that. A board whose nodes cannot be made is logged and left out. Main thread, once.
    void AddRegistryNodes();

private:
    std::shared_ptr<qnode::TreeNode> m_fansNode;  ///< null until AddRegistryNodes
};
