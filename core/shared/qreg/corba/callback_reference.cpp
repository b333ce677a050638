#include "qreg/corba/callback_reference.h"

#include <cctype>

#include <omniORB4/omniIOR.h>
#include <omniORB4/omniObjRef.h>

#include "qreg/error.h"

namespace qreg::corba {

namespace {

/// The first address of a reference over TCP. @return whether there is one.
bool FindAddress(CORBA::Object_ptr object, IIOP::ProfileBody& body) {
    const omniIOR_var reference(object->_PR_getobj()->_getIOR());
    const IOP::TaggedProfileList& profiles = reference->iopProfiles();
    for (CORBA::ULong i = 0; i < profiles.length(); ++i) {
        if (profiles[i].tag == IOP::TAG_INTERNET_IOP) {
            IIOP::unmarshalProfile(profiles[i], body);
            return true;
        }
    }
    return false;
}

std::string Escaped(const _CORBA_Unbounded_Sequence_Octet& key) {
    static constexpr const char* c_digits = "0123456789abcdef";
    std::string text;
    for (CORBA::ULong i = 0; i < key.length(); ++i) {
        const unsigned byte = key[i];
        if (std::isalnum(static_cast<int>(byte)) != 0 && byte < 0x80U) {
            text += static_cast<char>(byte);
        } else {
            text += {'%', c_digits[byte >> 4U], c_digits[byte & 0xFU]};
        }
    }
    return text;
}

}  // namespace

::reg::Listener_ptr ListenerAt(CORBA::ORB_ptr orb, ::reg::Listener_ptr given, const std::string& address) {
    IIOP::ProfileBody body;
    if (CORBA::is_nil(given) || !FindAddress(given, body) || body.address.port == 0) {
        throw RegistryError(ErrorCode_e::failed, {}, "The listener has no address on the network");
    }
    const bool isIpv6 = address.find(':') != std::string::npos;
    const std::string url = "corbaloc:iiop:1." + std::to_string(body.version.minor) + "@" +
                            (isIpv6 ? "[" + address + "]" : address) + ":" + std::to_string(body.address.port) + "/" +
                            Escaped(body.object_key);
    const CORBA::Object_var object = orb->string_to_object(url.c_str());
    return ::reg::Listener::_unchecked_narrow(object);
}

}  // namespace qreg::corba
