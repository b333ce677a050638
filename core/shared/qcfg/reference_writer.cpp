#include "qcfg/reference_writer.h"

#include <utility>
#include <vector>

#include "qcfg/rule_walk.h"

namespace qcfg {

namespace {

std::string Code(const std::string& text) {
    return text.empty() ? "" : "`" + text + "`";
}

/// A text as it may stand in a cell of a table.
std::string Cell(const std::string& text) {
    std::string cell;
    for (const char letter : text) {
        cell += letter == '|' ? "\\|" : std::string(1, letter);
    }
    return cell;
}

class ReferenceWriter final : public RuleWalk {
public:
    std::string Write(const ElementRule& root, const std::string& preface) {
        m_page = preface;
        Walk(root);
        for (const auto& [title, names] : GetNames()) {
            m_page += "\n## Values: " + title + "\n\n| name | number |\n|---|---|\n";
            for (const auto& [name, number] : names) {
                m_page += "| " + Code(name) + " | " + std::to_string(number) + " |\n";
            }
        }
        return std::move(m_page);
    }

private:
    void WriteElement(const ElementRule& rule, const std::string& path) override {
        m_page += "\n## " + path + "\n\n" + rule.doc + "\n";
        if (rule.text != nullptr) {
            m_page += "\nText: " + Describe(*rule.text, Place_e::text) +
                      (rule.defaultValue.empty() ? "." : "; default " + Code(rule.defaultValue) + ".") + "\n";
        }
    }

    void WriteVariant(const VariantRule& variant, const std::string& attribute) override {
        m_page += "\nWith `" + attribute + "=\"" + variant.name + "\"`: " + variant.doc + "\n";
    }

    void WriteAttributes(const std::vector<AttributeRule>& attributes) override {
        if (attributes.empty()) {
            return;
        }
        m_page += "\n| attribute | value | default | meaning |\n|---|---|---|---|\n";
        for (const AttributeRule& attribute : attributes) {
            m_page += "| " + Code(attribute.name) + " | " + Cell(Describe(*attribute.type, Place_e::attribute)) +
                      " | " + (attribute.isRequired ? "required" : Code(attribute.defaultValue)) + " | " +
                      Cell(attribute.doc) + " |\n";
        }
    }

    void WriteChildList(const RuleList& children) override {
        if (children.IsEmpty()) {
            return;
        }
        m_page += "\n| element | how often | meaning |\n|---|---|---|\n";
        for (const ElementRule& child : children) {
            m_page += "| " + Code("<" + child.name + ">") + " | " + HowOften(child.occurrence) + " | " +
                      Cell(child.doc) + " |\n";
        }
    }

    std::string m_page;
};

}  // namespace

std::string WriteReference(const ElementRule& root, const std::string& preface) {
    return ReferenceWriter().Write(root, preface);
}

}  // namespace qcfg
