#pragma once

#include "qcfg/configuration.h"
#include "qcfg/finding.h"

/// Proves the workers' sections on the chassis behind the pool: boards that do not answer, lists of sensors, the table
/// from temperature to fan speed. Boards are read, never written; no worker is started. For one thread.
/// @param configuration one that keeps all rules
/// @param findings gets what was found, in no certain order
void ProveConfiguration(const qcfg::Configuration& configuration, qcfg::Findings& findings);
