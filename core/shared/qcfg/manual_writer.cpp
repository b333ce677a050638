#include "qcfg/manual_writer.h"

#include <map>
#include <utility>
#include <vector>

namespace qcfg {

namespace {

/// A text as it may stand in a line, if it does not begin that line.
std::string Escape(const std::string& text) {
    static const std::map<char, std::string> special{{'\\', "\\e"},  {'-', "\\-"},   {'"', "\\(dq"},  {'^', "\\(ha"},
                                                     {'~', "\\(ti"}, {'`', "\\(ga"}, {'\'', "\\(aq"}, {'|', "\\(ba"}};
    std::string escaped;
    for (const char letter : text) {
        const auto found = special.find(letter);
        escaped += found == special.end() ? std::string(1, letter) : found->second;
    }
    return escaped;
}

/// A name in bold type, anywhere in a line.
std::string Bold(const std::string& text) {
    return "\\fB" + Escape(text) + "\\fR";
}

/// Sentences, each in a line of its own, as manual pages are written.
std::string Sentences(const std::string& text) {
    std::string lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find(". ", begin);
        const std::size_t size = end == std::string::npos ? text.size() - begin : end + 1 - begin;
        const std::string sentence = text.substr(begin, size);
        // A line must not begin with a control character.
        lines += (sentence.front() == '.' || sentence.front() == '\'' ? "\\&" : "") + Escape(sentence) + "\n";
        begin += size + (end == std::string::npos ? 0 : 1);
    }
    return lines;
}

class ManualWriter {
public:
    std::string Write(const ElementRule& root) {
        m_page = ".SH ELEMENTS\n";
        WriteElement(root, "");
        m_page += ".SH VALUES\nWhere a name is wanted, its number may be written in its place.\n";
        for (const auto& [title, names] : m_names) {
            m_page += ".SS " + Escape(title) + "\n";
            std::string list;
            for (const auto& [name, number] : names) {
                list += (list.empty() ? "" : ",\n") + Escape(name) + " " + std::to_string(number);
            }
            m_page += list + ".\n";
        }
        return std::move(m_page);
    }

private:
    /// Variants are told one by one: what belongs to a variant does not stand in the element's own lists.
    // NOLINTNEXTLINE(misc-no-recursion)
    void WriteElement(const ElementRule& rule, const std::string& parentPath) {
        const std::string path = parentPath + (parentPath.empty() ? "" : " / ") + rule.name;
        m_page += ".SS " + Escape(path) + "\n" + Sentences(rule.doc);
        if (rule.text != nullptr) {
            m_page += ".PP\n";
            WriteValue("Text", *rule.text, Place_e::text, false, rule.defaultValue);
        }
        std::vector<AttributeRule> attributes;
        if (!rule.variants.empty()) {
            attributes.push_back(WithAllVariants(rule).attributes.front());
        }
        attributes.insert(attributes.end(), rule.attributes.begin(), rule.attributes.end());
        WriteAttributes(attributes);
        WriteChildList(rule.children);
        for (const VariantRule& variant : rule.variants) {
            m_page += ".PP\nWith " + Bold(rule.variantAttribute + "=\"" + variant.name + "\"") + ":\n" +
                      Sentences(variant.doc);
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
        for (const AttributeRule& attribute : attributes) {
            m_page += ".TP\n" + Bold(attribute.name) + "\n";
            WriteValue("Value", *attribute.type, Place_e::attribute, attribute.isRequired, attribute.defaultValue);
            m_page += Sentences(attribute.doc);
        }
    }

    void WriteChildList(const RuleList& children) {
        for (const ElementRule& child : children) {
            m_page += ".TP\n" + Bold("<" + child.name + ">") + " (" + HowOften(child.occurrence) + ")\n" +
                      Sentences(child.doc);
        }
    }

    /// "Value: whole number 0..9; default 5."
    void WriteValue(const char* what, const ValueType& type, Place_e place, bool isRequired,
                    const std::string& defaultValue) {
        if (!type.GetNames().empty()) {
            m_names.emplace(type.GetSchemaName(place), type.GetNames());
        }
        m_page += std::string(what) + ": " + Escape(type.Describe(place)) +
                  (isRequired             ? "; required.\n"
                   : defaultValue.empty() ? ".\n"
                                          : "; default " + Escape(defaultValue) + ".\n");
    }

    std::string m_page;
    std::map<std::string, std::vector<std::pair<std::string, long long>>> m_names;
};

}  // namespace

std::string WriteManual(const ElementRule& root, const std::string& begin, const std::string& end) {
    return begin + ManualWriter().Write(root) + end;
}

}  // namespace qcfg
