#pragma once

#include <string_view>

#include <registry.hh>

// It does not include what it needs: after the one above.
#include <omniORB4/callDescriptor.h>

namespace qreg::corba {

/// A request `_is_a` on the server's side: whether the object has an interface. The ORB's own way never frees the
/// interface's name when that does not end as a text has to, whatever its length.
class IsACall final : public omniCallDescriptor {
public:
    static constexpr std::string_view c_name = "_is_a";

    IsACall();

    void unmarshalArguments(cdrStream& stream) override;
    void marshalReturnedValues(cdrStream& stream) override;

private:
    static void Call(omniCallDescriptor* descriptor, omniServant* servant);

    CORBA::String_var m_interface;
    bool m_is = false;
};

}  // namespace qreg::corba
