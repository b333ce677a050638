#pragma once

#include <vector>

#include "qcfg/schema.h"

/// The rules of the workers' sections of the configuration. Any thread may call it.
std::vector<qcfg::ElementRule> WorkerSectionRules();
