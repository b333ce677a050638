#pragma once

#include "qcfg/schema.h"

namespace bmc::sim {

/// What the section <boards> of a configuration holds for the simulated chassis. Any thread may call it.
qcfg::VariantRule ConfigurationRule();

}  // namespace bmc::sim
