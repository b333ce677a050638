#include "qreg/corba/callback_reference.h"

#include <algorithm>
#include <cctype>

#include <omniORB4/minorCode.h>

#include "qreg/error.h"

namespace qreg::corba {

namespace {

constexpr CORBA::ULong c_mostText = 1024;      ///< bytes of the name of a type or host
constexpr CORBA::ULong c_mostProfiles = 16;    ///< of one reference
constexpr CORBA::ULong c_mostProfile = 16384;  ///< bytes of one
constexpr CORBA::ULong c_mostKey = 1024;       ///< bytes of an object's key

/// A length that stands before so many bytes, which must be there.
CORBA::ULong ReadLength(cdrStream& stream, CORBA::ULong most) {
    CORBA::ULong length = 0;
    length <<= stream;
    if (length > most || !stream.checkInputOverrun(1, length)) {
        OMNIORB_THROW(MARSHAL, omni::MARSHAL_SequenceIsTooLong, CORBA::COMPLETED_NO);
    }
    return length;
}

std::vector<CORBA::Octet> ReadBytes(cdrStream& stream, CORBA::ULong most) {
    std::vector<CORBA::Octet> bytes(ReadLength(stream, most));
    if (!bytes.empty()) {
        stream.get_octet_array(bytes.data(), static_cast<int>(bytes.size()));
    }
    return bytes;
}

/// The profile of an object that is reached over TCP.
ListenerAddress ReadProfile(const std::vector<CORBA::Octet>& bytes) {
    cdrEncapsulationStream stream(bytes.data(), static_cast<CORBA::ULong>(bytes.size()));
    const CORBA::Octet major = stream.unmarshalOctet();
    ListenerAddress address;
    address.minor = stream.unmarshalOctet();
    ReadBytes(stream, c_mostText);  // the host, which is not asked for
    CORBA::UShort port = 0;
    port <<= stream;
    address.key = ReadBytes(stream, c_mostKey);
    address.port = major == 1 ? port : CORBA::UShort{0};
    return address;
}

std::string Escaped(const std::vector<CORBA::Octet>& key) {
    static constexpr const char* c_digits = "0123456789abcdef";
    std::string text;
    for (const unsigned byte : key) {
        if (std::isalnum(static_cast<int>(byte)) != 0 && byte < 0x80U) {
            text += static_cast<char>(byte);
        } else {
            text += {'%', c_digits[byte >> 4U], c_digits[byte & 0xFU]};
        }
    }
    return text;
}

}  // namespace

ListenerAddress ReadListenerAddress(cdrStream& stream) {
    ReadBytes(stream, c_mostText);  // the type, which is that of every listener
    CORBA::ULong profiles = 0;
    profiles <<= stream;
    if (profiles > c_mostProfiles) {
        OMNIORB_THROW(MARSHAL, omni::MARSHAL_SequenceIsTooLong, CORBA::COMPLETED_NO);
    }
    ListenerAddress address;
    for (; profiles > 0; --profiles) {
        CORBA::ULong tag = 0;
        tag <<= stream;
        const std::vector<CORBA::Octet> bytes = ReadBytes(stream, c_mostProfile);
        if (tag == IOP::TAG_INTERNET_IOP && address.port == 0) {
            address = ReadProfile(bytes);
        }
    }
    return address;
}

::reg::Listener_ptr ListenerAt(CORBA::ORB_ptr orb, const ListenerAddress& given, const std::string& address) {
    constexpr unsigned c_newestMinor = 2;
    if (given.port == 0) {
        throw RegistryError(ErrorCode_e::failed, {}, "The listener has no address on the network");
    }
    const bool isIpv6 = address.find(':') != std::string::npos;
    const std::string url = "corbaloc:iiop:1." + std::to_string(std::min(given.minor, c_newestMinor)) + "@" +
                            (isIpv6 ? "[" + address + "]" : address) + ":" + std::to_string(given.port) + "/" +
                            Escaped(given.key);
    const CORBA::Object_var object = orb->string_to_object(url.c_str());
    return ::reg::Listener::_unchecked_narrow(object);
}

}  // namespace qreg::corba
