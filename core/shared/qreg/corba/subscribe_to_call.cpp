#include "qreg/corba/subscribe_to_call.h"

#include <utility>

namespace qreg::corba {

namespace {

const char* const c_exceptions[] = {::reg::Error::_PD_repoId};

}  // namespace

SubscribeToCall::SubscribeToCall(Answer answer)
    : omniCallDescriptor(Call, c_name.data(), c_name.size() + 1, false, c_exceptions, 1, true),
      m_answer(std::move(answer)) {}

void SubscribeToCall::unmarshalArguments(cdrStream& stream) {
    m_filter <<= stream;
    m_listener = ReadListenerAddress(stream);
}

void SubscribeToCall::marshalReturnedValues(cdrStream& stream) {
    m_lease.in() >>= stream;
}

void SubscribeToCall::Call(omniCallDescriptor* descriptor, omniServant* /*servant*/) {
    auto& call = static_cast<SubscribeToCall&>(*descriptor);
    call.m_lease = call.m_answer(call.m_filter, call.m_listener);
}

}  // namespace qreg::corba
