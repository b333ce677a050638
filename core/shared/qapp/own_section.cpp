#include "qapp/own_section.h"

#include "qcfg/checker.h"
#include "qcfg/document.h"
#include "qstd/exception.h"

namespace qapp {

std::shared_ptr<qcfg::Element> FindOnlySection(const qcfg::Configuration& configuration, const std::string& name) {
    const auto sections = configuration.FindSections(name);
    if (sections.size() > 1) {
        throw qstd::Exception(qcfg::AtLine(configuration.GetFileName(), sections[1]->GetLine(),
                                           "second <" + name + "> section; there may be one only"));
    }
    return sections.empty() ? nullptr : sections.front();
}

std::shared_ptr<qcfg::Element> FindOwnSection(const qcfg::Configuration& configuration, const qcfg::ElementRule& rule) {
    std::shared_ptr<qcfg::Element> section = FindOnlySection(configuration, rule.name);
    if (section != nullptr) {
        qcfg::RefuseErrors(*section, rule, configuration.GetFileName());
    }
    return section;
}

}  // namespace qapp
