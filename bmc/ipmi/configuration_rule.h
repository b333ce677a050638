#pragma once

#include "qcfg/schema.h"

namespace bmc::ipmi {

/// What the section <boards> of a configuration holds for boards over IPMI. What it cannot say (boards that exclude
/// each other, passwords, templates of commands) ReadSettings proves. Any thread may call it.
qcfg::VariantRule ConfigurationRule();

/// The section with nothing else in it, as ReadSettings takes it. Any thread may call it.
qcfg::ElementRule SectionRule();

}  // namespace bmc::ipmi
