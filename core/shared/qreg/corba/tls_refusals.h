#pragma once

#include "qreg/limited_log.h"

namespace qreg::corba {

/// Tells in @p log from now on why a client was not taken over TLS: what was wrong with its certificate, or with what
/// it sent. To be called before ORB_init. @param log outlives the ORB; null: nothing is told
void TellTlsRefusals(LimitedLog* log);

}  // namespace qreg::corba
