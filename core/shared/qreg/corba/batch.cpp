#include "qreg/corba/batch.h"

#include "qreg/corba/room.h"
#include "qreg/corba/wire.h"

namespace qreg::corba {

void BatchFormat::ToWire(const Batch& batch, ::reg::Batch& wire) const {
    wire.boot_id = bootId.c_str();
    wire.lost = batch.lost;
    wire.more = batch.more;
    CORBA::ULong count = 0;
    Room left(room);
    for (const auto& event : batch.events) {
        if (!left.Take(SizeOf(*event)) && count > 0) {
            wire.more = true;
            break;
        }
        ++count;
    }
    wire.events.length(count);
    for (CORBA::ULong i = 0; i < count; ++i) {
        corba::ToWire(*batch.events[i], wire.events[i]);
    }
}

}  // namespace qreg::corba
