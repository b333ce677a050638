#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "qnode/tree_node.h"
#include "qstd/any.h"
#include "qstd/bi_map.h"
#include "qstd/enum_map.h"

namespace qnode::enums {

/// What a node tells of. The numbers are part of the registry protocol and never change; others may be added.
enum class NotificationType_e : unsigned short {
    value = 0,      ///< the node's value changed
    threshold = 1,  ///< a reading is beyond the threshold that the node shows
};

}  // namespace qnode::enums

namespace qnode {

using NotificationType = enums::NotificationType_e;

/// What a node told.
struct Notification {
    std::string path;  ///< from below the root of the tree, without a slash at the begin
    NotificationType type{};
    std::chrono::system_clock::time_point time;  ///< when
    qstd::Any value;                             ///< what was emitted with it
};

/// Who wants to know what the nodes of a tree tell. Called on the emitting thread, several threads at once: an
/// implementation takes note and returns, it never waits. It must not start or end a Listening.
class NotificationListener {
public:
    virtual void OnNotification(const Notification& notification) = 0;

protected:
    ~NotificationListener() = default;
};

/// Passes on what the nodes of one tree tell for as long as it lives. While no Listening of the process has interest,
/// an emission costs one comparison. Any thread.
class Listening {
public:
    /// Begins without interest. @param listener outlives this object.
    Listening(std::shared_ptr<TreeNode> root, NotificationListener& listener);
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
    /// Waits for the calls of the listener that are running.
    ~Listening();

    /// Whether the listener wants calls at present. One that is running may still end after this returned.
    void SetInterest(bool hasInterest);

private:
    friend class Node;
    static bool IsAnyInterested() noexcept;
    static void Tell(const TreeNode& node, NotificationType type, const qstd::Any& value);

    const std::shared_ptr<TreeNode> m_root;
    NotificationListener& m_listener;
    bool m_hasInterest = false;
};

}  // namespace qnode

namespace qstd {

template <>
const BiMap<qnode::enums::NotificationType_e> EnumMap<qnode::enums::NotificationType_e>::items;

}  // namespace qstd
