#include "qapp/own_section.h"

#include "qcfg/checker.h"
#include "qcfg/document.h"
#include "qstd/exception.h"

namespace qapp {

std::shared_ptr<qcfg::Element> FindOwnSection(const qcfg::Configuration& configuration, const qcfg::ElementRule& rule) {
    const auto sections = configuration.FindSections(rule.name);
    if (sections.size() > 1) {
        throw qstd::Exception(qcfg::AtLine(configuration.GetFileName(), sections[1]->GetLine(),
                                           "second <" + rule.name + "> section; there may be one only"));
    }
    if (sections.empty()) {
        return nullptr;
    }
    for (const qcfg::Finding& finding : qcfg::CheckConfiguration(*sections.front(), rule)) {
        if (finding.severity == qcfg::Severity_e::error) {
            throw qstd::Exception(qcfg::AtLine(configuration.GetFileName(), finding.line, finding.text));
        }
    }
    return sections.front();
}

}  // namespace qapp
