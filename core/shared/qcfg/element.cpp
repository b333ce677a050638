#include "qcfg/element.h"

#include <algorithm>
#include <utility>

namespace qcfg {

Element::Element(std::string name, std::string value, int line)
    : m_name(std::move(name)), m_value(std::move(value)), m_line(line) {}

std::shared_ptr<Element> Element::FindChild(const std::string& name) const {
    const auto found = std::find_if(m_children.begin(), m_children.end(),
                                    [&name](const auto& child) { return child->GetName() == name; });
    return found == m_children.end() ? nullptr : *found;
}

bool Element::FindAttr(const std::string& name, std::shared_ptr<Attribute>& out) const {
    const auto found = std::find_if(m_attributes.begin(), m_attributes.end(),
                                    [&name](const auto& attribute) { return attribute->GetName() == name; });
    if (found == m_attributes.end()) {
        return false;
    }
    out = *found;
    return true;
}

bool Element::IsEmpty() const noexcept {
    return m_children.empty() && m_attributes.empty() && m_value.find_first_not_of(" \t\r\n") == std::string::npos;
}

void Element::AddChild(std::shared_ptr<Element> child) {
    m_children.push_back(std::move(child));
}

void Element::AddAttr(std::shared_ptr<Attribute> attribute) {
    m_attributes.push_back(std::move(attribute));
}

void Element::AppendText(const std::string& text) {
    m_value += text;
}

}  // namespace qcfg
