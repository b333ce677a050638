#include "qreg/corba/is_a_call.h"

#include <omniORB4/omniServant.h>

namespace qreg::corba {

IsACall::IsACall() : omniCallDescriptor(Call, c_name.data(), c_name.size() + 1, false, nullptr, 0, true) {}

void IsACall::unmarshalArguments(cdrStream& stream) {
    constexpr CORBA::ULong c_most = 1024;
    m_interface = stream.unmarshalString(c_most);
}

void IsACall::marshalReturnedValues(cdrStream& stream) {
    stream.marshalBoolean(m_is);
}

void IsACall::Call(omniCallDescriptor* descriptor, omniServant* servant) {
    auto& call = static_cast<IsACall&>(*descriptor);
    call.m_is = servant->_is_a(call.m_interface.in());
}

}  // namespace qreg::corba
