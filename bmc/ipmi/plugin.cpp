#include "bmc/ipmi/plugin.h"

#include "bmc/ipmi/ipmi_backend.h"
#include "bmc/ipmi/make_transport.h"
#include "qstd/ver_info.h"
