#include "bmc/sim/configuration_rule.h"

#include "qcfg/value_types.h"

namespace bmc::sim {

qcfg::VariantRule ConfigurationRule() {
    qcfg::VariantRule rule{.name = "sim", .doc = "a simulated chassis inside the process; no hardware is touched."};
    rule.attributes = {
        {.name = "chassis",
         .type = qcfg::Text("path of a file"),
         .doc = "Description of the chassis; a small built-in one when left out."},
        {.name = "control",
         .type = qcfg::Text("path of a socket"),
         .doc = "Socket through which zelkor-chassisctl reaches the chassis at run time; none when left out."},
    };
    return rule;
}

}  // namespace bmc::sim
