#include "qreg/corba/message_guard.h"

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

    static void ReadRequest(giopStream* stream) { Read(s_readRequest, stream); }
    static void ReadLocateRequest(giopStream* stream) { Read(s_readLocateRequest, stream); }

    /// The ORB knows how to go on after these two kinds of exceptions only.
    static void Read(void (*read)(giopStream*), giopStream* stream) {
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
