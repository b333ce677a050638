#include "qcfg/reference_writer.h"

#include <map>
#include <utility>
#include <vector>

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

class ReferenceWriter {
public:
    std::string Write(const ElementRule& root, const std::string& preface) {
        m_page = preface;
        WriteElement(root, "");
        for (const auto& [title, names] : m_names) {
            m_page += "\n## Values: " + title + "\n\n| name | number |\n|---|---|\n";
            for (const auto& [name, number] : names) {
                m_page += "| " + Code(name) + " | " + std::to_string(number) + " |\n";
            }
        }
        return std::move(m_page);
    }

private:
    /// Variants are told one by one: what belongs to a variant does not stand in the element's own tables.
    // NOLINTNEXTLINE(misc-no-recursion)
    void WriteElement(const ElementRule& rule, const std::string& parentPath) {
        const std::string path = parentPath + (parentPath.empty() ? "" : " / ") + rule.name;
        m_page += "\n## " + path + "\n\n" + rule.doc + "\n";
        if (rule.text != nullptr) {
            m_page += "\nText: " + Describe(*rule.text, Place_e::text) +
                      (rule.defaultValue.empty() ? "." : "; default " + Code(rule.defaultValue) + ".") + "\n";
        }
        if (!rule.variants.empty()) {
            const ElementRule all = WithAllVariants(rule);
            WriteAttributes({all.attributes.begin(), all.attributes.begin() + 1});
        }
        WriteAttributes(rule.attributes);
        WriteChildList(rule.children);
        for (const VariantRule& variant : rule.variants) {
            m_page += "\nWith `" + rule.variantAttribute + "=\"" + variant.name + "\"`: " + variant.doc + "\n";
            WriteAttributes(variant.attributes);
            WriteChildList(variant.children);
        }
        for (const ElementRule& child : rule.children) {
            WriteElement(child, path);
        }
        for (const VariantRule& variant : rule.variants) {
            for (const ElementRule& child : variant.children) {
                WriteElement(child, path);
            }
        }
    }

    void WriteAttributes(const std::vector<AttributeRule>& attributes) {
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

    void WriteChildList(const RuleList& children) {
        if (children.IsEmpty()) {
            return;
        }
        m_page += "\n| element | how often | meaning |\n|---|---|---|\n";
        for (const ElementRule& child : children) {
            m_page += "| " + Code("<" + child.name + ">") + " | " + HowOften(child.occurrence) + " | " +
                      Cell(child.doc) + " |\n";
        }
    }

    std::string Describe(const ValueType& type, Place_e place) {
        if (!type.GetNames().empty()) {
            m_names.emplace(type.GetSchemaName(place), type.GetNames());
        }
        return type.Describe(place);
    }

    std::string m_page;
    std::map<std::string, std::vector<std::pair<std::string, long long>>> m_names;
};

}  // namespace

std::string WriteReference(const ElementRule& root, const std::string& preface) {
    return ReferenceWriter().Write(root, preface);
}

}  // namespace qcfg
