#include "qapp/configuration_rules.h"

#include <memory>
#include <utility>

#include "qapp/registry_settings.h"
#include "qapp/service_settings.h"
#include "qcfg/configuration.h"
#include "qcfg/reference_writer.h"
#include "qcfg/value_types.h"

namespace qapp {

namespace {

using qcfg::ElementRule;
using qcfg::Occurrence_e;

ElementRule BoardsRule(const std::vector<qcfg::VariantRule>& backends) {
    ElementRule rule{.name = "boards",
                     .doc = "How the boards are reached. Without this section: by the first way, with its defaults."};
    rule.variantAttribute = "backend";
    rule.variantDoc = "The way to the boards.";
    rule.variants = backends;
    return rule;
}

/// An empty section counts as absent, which a person who wrote it may not expect.
void WarnOfEmptySections(const qcfg::Element& root, qcfg::Findings& findings) {
    for (const std::shared_ptr<qcfg::Element>& section : root.GetChildren()) {
        if (section->IsEmpty()) {
            findings.push_back({qcfg::Severity_e::warning, section->GetLine(),
                                "<" + section->GetName() + "> is empty and counts as absent"});
        }
    }
}

constexpr const char* c_preface =
    R"(<!-- Written by `cmake --build --preset dev --target configuration_reference` from the rules in
     core/shared/qapp/configuration_rules.cpp and daemon/configuration_rules.cpp. Change the rules, not this page: a test
     compares the two. -->

# Configuration reference

The configuration is one XML file. Sections and their children may come in any order. Relative paths are relative to
the file. Options on the command line win over the file. No external entity is ever loaded.

`--check-config` proves a file by the rules below, then on the boards (see the operation guide), and prints each finding as
`FILE:LINE: error: text` or `FILE:LINE: warning: text`. The service itself goes on with the default where a worker's setting is wrong.
`--print-schema` prints the same rules as an XML schema for editors and `xmllint --schema`. The schema is a little weaker
than the check: it does not tell the backends of `<boards>` apart, passes over blanks around numbers, holds hexadecimal
numbers to 32 bits but not to their range, takes a fraction beyond all numbers (1e999), counts children only where none
may repeat, looks at IPv6 addresses and the numbers of a list only letter by letter, and asks neither `<read>` and
`<write>` for clients that there can be nor `<tls>` for its key. The files that `<tls>` names are proved by the check and
at start.

A value has no blanks around it. Numbers are decimal; in the text of an element they may also be hexadecimal with `0x`.
)";

}  // namespace

qcfg::ElementRule ConfigurationRules(const std::vector<qcfg::VariantRule>& backends,
                                     const std::vector<qcfg::ElementRule>& sections) {
    ElementRule root{.name = qcfg::Configuration::c_rootName,
                     .occurrence = Occurrence_e::once,
                     .doc =
                         "The configuration. A section that is empty (no attribute, no child, no text) counts as "
                         "absent."};
    std::vector<ElementRule> children{ServiceRule(), RegistryRule(), BoardsRule(backends)};
    children.insert(children.end(), sections.begin(), sections.end());
    root.children = qcfg::RuleList(std::move(children));
    root.check = WarnOfEmptySections;
    qcfg::ProveRules(root);
    return root;
}

std::string ConfigurationReference(const qcfg::ElementRule& rules) {
    return qcfg::WriteReference(rules, c_preface);
}

}  // namespace qapp
