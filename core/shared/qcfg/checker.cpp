#include "qcfg/checker.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qcfg/document.h"
#include "qcfg/suggestion.h"
#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qcfg {

namespace {

constexpr const char* c_blanks = " \t\r\n";

/// Attributes by which a root element names its schema to XML tools. The parser leaves their prefix ("xsi:") out.
constexpr std::array<const char*, 2> c_schemaHints{"noNamespaceSchemaLocation", "schemaLocation"};

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(c_blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(c_blanks) - first + 1);
}

std::string Quoted(const std::string& text) {
    constexpr std::size_t c_longest = 60;
    return '"' + qstd::OneLine(text.size() > c_longest ? text.substr(0, c_longest) + "..." : text) + '"';
}

std::string Tag(const std::string& name) {
    return "<" + name + ">";
}

/// The rule of that name, null when there is none.
template <class Rules>
auto Find(const Rules& rules, const std::string& name) -> decltype(&*rules.begin()) {
    const auto found =
        std::find_if(rules.begin(), rules.end(), [&name](const auto& rule) { return rule.name == name; });
    return found == rules.end() ? nullptr : &*found;
}

template <class Rules>
std::string FindSimilarName(const Rules& rules, const std::string& word) {
    std::vector<std::string> names;
    std::transform(rules.begin(), rules.end(), std::back_inserter(names), [](const auto& rule) { return rule.name; });
    return FindSimilar(word, names);
}

class Checker {
public:
    Findings Check(const Element& root, const ElementRule& rule) {
        m_root = &root;
        CheckElement(root, rule);
        SortByLine(m_findings);
        return std::move(m_findings);
    }

private:
    void AddError(const Element& element, std::string text) {
        m_findings.push_back({Severity_e::error, element.GetLine(), std::move(text)});
    }

    /// The depth is that of the table.
    // NOLINTNEXTLINE(misc-no-recursion)
    void CheckElement(const Element& element, const ElementRule& rule) {
        if (!rule.variants.empty()) {
            CheckElement(element, WithChosenVariant(rule, element));
            return;
        }
        CheckAttributes(element, rule);
        CheckText(element, rule);
        CheckChildren(element, rule);
        if (rule.check) {
            rule.check(element, m_findings);
        }
    }

    void CheckAttributes(const Element& element, const ElementRule& rule) {
        for (const std::shared_ptr<Attribute>& attribute : element.GetAttributes()) {
            const AttributeRule* const known = Find(rule.attributes, attribute->GetName());
            if (known != nullptr) {
                CheckValue(element, "attribute \"" + known->name + "\" of " + Tag(rule.name), attribute->GetValue(),
                           *known->type, Place_e::attribute);
            } else if (!IsSchemaHint(element, attribute->GetName())) {
                ReportUnknownAttribute(element, rule, attribute->GetName());
            }
        }
        for (const AttributeRule& attribute : rule.attributes) {
            std::shared_ptr<Attribute> given;
            if (attribute.isRequired && !element.FindAttr(attribute.name, given)) {
                AddError(element, Tag(rule.name) + " lacks the attribute \"" + attribute.name + "\" (" +
                                      attribute.type->Describe(Place_e::attribute) + ")");
            }
        }
    }

    bool IsSchemaHint(const Element& element, const std::string& name) const {
        return &element == m_root && std::find(c_schemaHints.begin(), c_schemaHints.end(), name) != c_schemaHints.end();
    }

    void ReportUnknownAttribute(const Element& element, const ElementRule& rule, const std::string& name) {
        std::string hint;
        if (const std::string similar = FindSimilarName(rule.attributes, name); !similar.empty()) {
            hint = "; did you mean \"" + similar + "\"?";
        } else if (Find(rule.children, name) != nullptr) {
            hint = "; it is an element: <" + name + ">...</" + name + ">";
        }
        AddError(element, "unknown attribute " + Quoted(name) + " of " + Tag(rule.name) + hint);
    }

    void CheckValue(const Element& element, const std::string& subject, const std::string& value, const ValueType& type,
                    Place_e place) {
        const std::string fault = type.FindFault(value, place);
        if (fault.empty()) {
            return;
        }
        const std::string trimmed = Trimmed(value);
        if (trimmed != value && type.FindFault(trimmed, place).empty()) {
            AddError(element, subject + ": " + Quoted(value) + " has blanks around the value, which may have none");
        } else if (trimmed.empty()) {
            AddError(element, subject + ": the value is missing (" + type.Describe(place) + ")");
        } else {
            AddError(element, subject + ": " + Quoted(value) + " " + fault);
        }
    }

    void CheckText(const Element& element, const ElementRule& rule) {
        if (rule.text != nullptr) {
            CheckValue(element, Tag(rule.name), element.GetValue(), *rule.text, Place_e::text);
        } else if (const std::string text = Trimmed(element.GetValue()); !text.empty()) {
            AddError(element, "stray text " + Quoted(text) + " in " + Tag(rule.name));
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    void CheckChildren(const Element& element, const ElementRule& rule) {
        for (const ElementRule& child : rule.children) {
            if (child.occurrence == Occurrence_e::once && element.FindChild(child.name) == nullptr) {
                AddError(element, Tag(rule.name) + " lacks the element " + Tag(child.name));
            }
        }
        std::map<std::string, int> firstLines;
        for (const std::shared_ptr<Element>& child : element.GetChildren()) {
            const ElementRule* const known = Find(rule.children, child->GetName());
            if (known == nullptr) {
                ReportUnknownElement(*child, rule);
                continue;
            }
            const auto [first, isFirst] = firstLines.emplace(child->GetName(), child->GetLine());
            if (!isFirst && known->occurrence != Occurrence_e::any) {
                AddError(*child, "second " + Tag(known->name) + " in " + Tag(rule.name) + "; one only may be there, " +
                                     "the first is in line " + std::to_string(first->second));
            }
            CheckElement(*child, *known);
        }
    }

    void ReportUnknownElement(const Element& child, const ElementRule& rule) {
        std::string hint;
        if (const std::string similar = FindSimilarName(rule.children, child.GetName()); !similar.empty()) {
            hint = "; did you mean <" + similar + ">?";
        } else if (Find(rule.attributes, child.GetName()) != nullptr) {
            hint = "; it is an attribute: <" + rule.name + " " + child.GetName() + "=\"...\">";
        }
        AddError(child, "unknown element " + Tag(qstd::OneLine(child.GetName())) + " in " + Tag(rule.name) + hint);
    }

    const Element* m_root = nullptr;
    Findings m_findings;
};

}  // namespace

Findings CheckConfiguration(const Element& root, const ElementRule& rule) {
    return Checker().Check(root, rule);
}

void RefuseErrors(const Element& root, const ElementRule& rule, const std::string& fileName) {
    for (const Finding& finding : CheckConfiguration(root, rule)) {
        if (finding.severity == Severity_e::error) {
            throw qstd::Exception(AtLine(fileName, finding.line, finding.text));
        }
    }
}

}  // namespace qcfg
