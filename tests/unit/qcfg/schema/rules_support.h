#pragma once

#include <string>
#include <vector>

#include "daemon_rules.h"
#include "qcfg/checker.h"
#include "qcfg/document.h"

namespace test {

/// The findings in a text, as they are printed, "f.xml" being the file.
inline std::vector<std::string> CheckText(const std::string& text, const qcfg::ElementRule& rules = DaemonRules()) {
    std::vector<std::string> lines;
    for (const qcfg::Finding& finding : qcfg::CheckConfiguration(*qcfg::ReadXmlText(text, "f.xml"), rules)) {
        lines.push_back(qcfg::ToText(finding, "f.xml"));
    }
    return lines;
}

/// A whole configuration with @p sections beside what must be there.
inline std::string WithSections(const std::string& sections) {
    return "<zelkor><boards chassis=\"c.xml\"/>" + sections + "</zelkor>";
}

}  // namespace test
