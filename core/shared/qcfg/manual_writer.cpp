#include "qcfg/manual_writer.h"

#include <map>
#include <utility>
#include <vector>

#include "qcfg/rule_walk.h"

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

class ManualWriter final : public RuleWalk {
public:
    std::string Write(const ElementRule& root) {
        m_page = ".SH ELEMENTS\n";
        Walk(root);
        m_page += ".SH VALUES\nWhere a name is wanted, its number may be written in its place.\n";
        for (const auto& [title, names] : GetNames()) {
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
    void WriteElement(const ElementRule& rule, const std::string& path) override {
        m_page += ".SS " + Escape(path) + "\n" + Sentences(rule.doc);
        if (rule.text != nullptr) {
            m_page += ".PP\n";
            WriteValue("Text", *rule.text, Place_e::text, false, rule.defaultValue);
        }
    }

    void WriteVariant(const VariantRule& variant, const std::string& attribute) override {
        m_page += ".PP\nWith " + Bold(attribute + "=\"" + variant.name + "\"") + ":\n" + Sentences(variant.doc);
    }

    void WriteAttributes(const std::vector<AttributeRule>& attributes) override {
        for (const AttributeRule& attribute : attributes) {
            m_page += ".TP\n" + Bold(attribute.name) + "\n";
            WriteValue("Value", *attribute.type, Place_e::attribute, attribute.isRequired, attribute.defaultValue);
            m_page += Sentences(attribute.doc);
        }
    }

    void WriteChildList(const RuleList& children) override {
        for (const ElementRule& child : children) {
            m_page += ".TP\n" + Bold("<" + child.name + ">") + " (" + HowOften(child.occurrence) + ")\n" +
                      Sentences(child.doc);
        }
    }

    /// "Value: whole number 0..9; default 5."
    void WriteValue(const char* what, const ValueType& type, Place_e place, bool isRequired,
                    const std::string& defaultValue) {
        m_page += std::string(what) + ": " + Escape(Describe(type, place)) +
                  (isRequired             ? "; required.\n"
                   : defaultValue.empty() ? ".\n"
                                          : "; default " + Escape(defaultValue) + ".\n");
    }

    std::string m_page;
};

}  // namespace

std::string WriteManual(const ElementRule& root, const std::string& begin, const std::string& end) {
    return begin + ManualWriter().Write(root) + end;
}

}  // namespace qcfg
