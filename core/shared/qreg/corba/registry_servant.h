#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include <registry.hh>

#include "qreg/access.h"
#include "qreg/corba/batch.h"
#include "qreg/corba/callback_reference.h"
#include "qreg/corba/push.h"
#include "qreg/corba/running_writes.h"
#include "qreg/corba/views.h"
#include "qreg/guarded_access.h"
#include "qreg/server.h"
#include "qreg/subscriptions.h"

namespace qreg::corba {

/// What the one object of the wire contract stands before: it converts, hands on to what knows the rules, and
/// translates errors. Nothing but CORBA's exceptions leaves it. All threads of the ORB.
class RegistryServant final : public POA_reg::Registry_1_1 {
public:
    /// @param access,guard,subscriptions outlive this object
    /// @param orb of this server
    RegistryServant(const ServerSettings& settings, const Access& access, const GuardedAccess& guard,
                    Subscriptions& subscriptions, CORBA::ORB_ptr orb);

    /// Every request from now on raises stopping; waits for the writes under way. @return how many writes still are.
    std::size_t Refuse(std::chrono::milliseconds limit);

    /// Ends the deliveries to listeners; waits for calls that run.
    void StopPush();

    /// Takes two operations in its own way, see SubscribeToCall and IsACall.
    CORBA::Boolean _dispatch(omniCallHandle& handle) override;

    ::reg::ServerInfo* hello(const char* client) override;
    ::reg::NodeInfo* describe(const char* path) override;
    ::reg::NodeInfoSeq* children(const char* path, CORBA::ULong start) override;
    ::reg::Reading* get(const char* path) override;
    ::reg::ValueSeq* get_many(const ::reg::PathSeq& paths) override;
    ::reg::Page* subtree(const char* path, CORBA::ULong depth, CORBA::ULong limit, const char* after) override;
    void set(const char* path, const ::reg::NewValue& value) override;
    ::reg::OutcomeSeq* set_many(const ::reg::AssignmentSeq& assignments) override;
    ::reg::Lease* subscribe(const ::reg::Filter& filter) override;
    /// Never called: its requests are answered by SubscribeTo.
    ::reg::Lease* subscribe_to(const ::reg::Filter& filter, ::reg::Listener_ptr listener) override;
    ::reg::Batch* poll(const char* id, CORBA::ULongLong received, CORBA::ULong max, CORBA::ULong waitMs) override;
    CORBA::ULong renew(const char* id) override;
    void unsubscribe(const char* id) override;
    char* open_view(const ::reg::PathSeq& paths) override;
    ::reg::Columns* read_view(const char* id) override;
    void close_view(const char* id) override;

private:
    ::reg::Lease* SubscribeTo(const ::reg::Filter& filter, const ListenerAddress& listener);

    /// Calls @p answer for a client that may read, and translates what it throws. @param path the node in question,
    /// null for none
    template <class Answer>
    auto Do(const char* path, Answer&& answer) const -> decltype(answer());

    /// The same for any client.
    template <class Answer>
    auto DoForAll(const char* path, Answer&& answer) const -> decltype(answer());

    /// Also called between the nodes of a request for many: one that is slow may hold up the stop, not all of them.
    /// @throws RegistryError stopping.
    void RefuseWhenStopping() const;

    /// @throws RegistryError limit when @p count items of @p size bytes do not fit into a reply.
    void RefuseTooMany(std::size_t count, std::size_t size) const;

    Outcome WriteOne(const char* path, const ::reg::NewValue& value);

    const Access& m_access;
    const GuardedAccess& m_guard;
    Subscriptions& m_subscriptions;
    const CORBA::ORB_var m_orb;
    const std::string m_product;
    const bool m_offersPush;
    const std::size_t m_maxMessage;
    const std::size_t m_room;      ///< bytes for the items of a reply
    const std::size_t m_pageRoom;  ///< bytes for the items of a page of a subtree
    const SubscriptionLimits m_limits;
    const BatchFormat m_format;
    std::atomic<bool> m_isStopping{false};
    RunningWrites m_writes;
    Views m_views;
    Push m_push;
};

}  // namespace qreg::corba
