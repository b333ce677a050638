#pragma once

#include <functional>
#include <string_view>

#include <registry.hh>

// It does not include what it needs: after the one above.
#include <omniORB4/callDescriptor.h>

#include "qreg/corba/callback_reference.h"

namespace qreg::corba {

/// A request `subscribe_to` on the server's side. It takes the listener's reference off the wire by itself: the ORB's
/// own way makes an object of it first, and never frees any of a reference with a broken profile, twice as many bytes
/// as the reference has, whether listeners are served or not.
class SubscribeToCall final : public omniCallDescriptor {
public:
    static constexpr std::string_view c_name = "subscribe_to";
    using Answer = std::function<::reg::Lease*(const ::reg::Filter& filter, const ListenerAddress& listener)>;

    /// @param answer called with the arguments; may throw CORBA's exceptions
    explicit SubscribeToCall(Answer answer);

    void unmarshalArguments(cdrStream& stream) override;
    void marshalReturnedValues(cdrStream& stream) override;

private:
    static void Call(omniCallDescriptor* descriptor, omniServant* servant);

    const Answer m_answer;
    ::reg::Filter m_filter;
    ListenerAddress m_listener;
    ::reg::Lease_var m_lease;
};

}  // namespace qreg::corba
