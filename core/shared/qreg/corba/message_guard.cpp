#include "qreg/corba/message_guard.h"

#include <cstddef>

#include <omniORB4/CORBA.h>
#include <omniORB4/minorCode.h>

// In this order: the last ones do not include what they need.
#include <omniORB4/internal/giopStrand.h>
#include <omniORB4/internal/giopStream.h>

#include <omniORB4/internal/GIOP_S.h>
#include <omniORB4/internal/giopStreamImpl.h>

namespace qreg::corba {

namespace {

using omni::giopStream;
using CommFailure = giopStream::CommFailure;

[[noreturn]] void Drop(giopStream& stream) {
    stream.strand().state(omni::giopStrand::DYING);
    throw CommFailure(omni::COMM_FAILURE_UnMarshalArguments, CORBA::COMPLETED_NO, false);
}

/// The part of the first piece of a message that has not been read yet. The members are those of all streams.
struct Unread : cdrStream {
    static const CORBA::Octet* Begin(const cdrStream& stream) {
        return static_cast<const CORBA::Octet*>(stream.*(&Unread::pd_inb_mkr));
    }
    static std::ptrdiff_t Size(const cdrStream& stream) {
        return static_cast<const CORBA::Octet*>(stream.*(&Unread::pd_inb_end)) - Begin(stream);
    }
};

/// Whether the object is named by its key: a zero of two bytes, @p offset bytes behind the number of the request. Where
/// they are not in the first piece of the message, which nobody makes so small, it does not count as named so.
bool IsNamedByKey(const giopStream& stream, std::ptrdiff_t offset) {
    return Unread::Size(stream) >= offset + 2 && Unread::Begin(stream)[offset] == 0 &&
           Unread::Begin(stream)[offset + 1] == 0;
}

/// The guards of one version of GIOP, 1.minor: each stands before the ORB's own function, which it calls.
template <CORBA::Octet minor>
class Guards {
public:
    static void Install() {
        const GIOP::Version version = {1, minor};
        omni::giopStreamImpl& table = *omni::giopStreamImpl::matchVersion(version);
        if (table.inputMessageEnd == EndMessage) {
            return;
        }
        s_endMessage = table.inputMessageEnd;
        s_readRequest = table.unmarshalRequestHeader;
        s_readLocateRequest = table.unmarshalLocateRequest;
        table.inputMessageEnd = EndMessage;
        table.unmarshalRequestHeader = ReadRequest;
        table.unmarshalLocateRequest = ReadLocateRequest;
    }

private:
    static void EndMessage(giopStream* stream, CORBA::Boolean discard) {
        try {
            s_endMessage(stream, discard);
        } catch (const CommFailure&) {
            auto* const request = dynamic_cast<omni::GIOP_S*>(stream);
            if (request != nullptr && request->state() == omni::IOP_S::WaitingForReply) {
                request->state(omni::IOP_S::RequestIsBeingProcessed);
            }
            throw;
        }
    }

    static void ReadRequest(giopStream* stream) { Read(s_readRequest, stream, c_requestTarget); }
    static void ReadLocateRequest(giopStream* stream) { Read(s_readLocateRequest, stream, 0); }

    static void Read(void (*read)(giopStream*), giopStream* stream, std::ptrdiff_t target) {
        if (minor >= 2 && !IsNamedByKey(*stream, target)) {
            Drop(*stream);
        }
        // The ORB knows how to go on after two kinds of exceptions only.
        try {
            read(stream);
        } catch (const CommFailure&) {
            throw;
        } catch (const CORBA::SystemException&) {
            throw;
        } catch (...) {
            Drop(*stream);
        }
    }

    static constexpr std::ptrdiff_t c_requestTarget = 4;  ///< behind the flags of a request

    static inline void (*s_endMessage)(giopStream*, CORBA::Boolean) = nullptr;
    static inline void (*s_readRequest)(giopStream*) = nullptr;
    static inline void (*s_readLocateRequest)(giopStream*) = nullptr;
};

}  // namespace

void InstallMessageGuards() {
    Guards<0>::Install();
    Guards<1>::Install();
    Guards<2>::Install();
}

}  // namespace qreg::corba
