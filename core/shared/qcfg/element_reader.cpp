#include "qcfg/element_reader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <system_error>

#include "qcfg/document.h"
#include "qcfg/suggestion.h"
#include "qstd/exception.h"
#include "qstd/from_chars.h"
#include "qstd/strings.h"

namespace qcfg {

namespace {

constexpr Range c_anyNumber{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max(), "finite"};

/// The whole of @p text as a number.
template <class T>
std::optional<T> Parse(const std::string& text) {
    T value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = qstd::FromChars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional<T>(value) : std::nullopt;
}

bool IsKnown(const std::string& name, std::initializer_list<const char*> known) {
    return std::any_of(known.begin(), known.end(), [&name](const char* each) { return name == each; });
}

}  // namespace

std::string ElementReader::Quoted(const std::string& text) {
    return "\"" + qstd::OneLine(text) + "\"";
}

void ElementReader::Refuse(const std::string& text) const {
    throw qstd::Exception(AtLine(m_fileName, m_element.GetLine(), text));
}

void ElementReader::RefuseUnknown(const std::string& what, const std::string& given,
                                  const std::vector<std::string>& known, const char* before, const char* after) const {
    if (const std::string similar = FindSimilar(given, known); !similar.empty()) {
        Refuse(what + ", did you mean " + before + similar + after + "?");
    }
    std::string text = what + "; known: ";
    for (const std::string& name : known) {
        text += (&name == &known.front() ? "" : ", ") + name;
    }
    Refuse(known.empty() ? what : text);
}

void ElementReader::CheckContent(std::initializer_list<const char*> attributes,
                                 std::initializer_list<const char*> children) const {
    const std::string self = "<" + m_element.GetName() + ">";
    for (const auto& attribute : m_element.GetAttributes()) {
        const std::string& name = attribute->GetName();
        if (!IsKnown(name, attributes)) {
            RefuseUnknown("unknown attribute " + Quoted(name) + " of " + self, name,
                          {attributes.begin(), attributes.end()}, "\"", "\"");
        }
    }
    for (const auto& child : m_element.GetChildren()) {
        const std::string& name = child->GetName();
        if (!IsKnown(name, children)) {
            std::string text = "unknown element <";
            text.append(name).append("> in ").append(self);
            ElementReader(*child, m_fileName).RefuseUnknown(text, name, {children.begin(), children.end()}, "<", ">");
        }
    }
    if (m_element.GetValue().find_first_not_of(" \t\r\n") != std::string::npos) {
        Refuse("text in " + self + ", which has attributes and elements only");
    }
}

bool ElementReader::Has(const char* name) const {
    std::shared_ptr<Attribute> attribute;
    return m_element.FindAttr(name, attribute);
}

std::string ElementReader::Text(const char* name, const std::string& fallback) const {
    std::shared_ptr<Attribute> attribute;
    if (!m_element.FindAttr(name, attribute)) {
        return fallback;
    }
    const std::string& text = attribute->GetValue();
    if (qstd::OneLine(text) != text) {
        Refuse("control character in attribute \"" + std::string(name) + "\": " + Quoted(text));
    }
    return text;
}

std::string ElementReader::RequiredText(const char* name) const {
    if (!Has(name)) {
        Refuse("<" + m_element.GetName() + "> needs the attribute \"" + name + "\"");
    }
    return Text(name, {});
}

std::optional<double> ElementReader::Real(const char* name, const Range& range) const {
    if (!Has(name)) {
        return std::nullopt;
    }
    const std::string text = Text(name, {});
    const std::optional<double> value = Parse<double>(text);
    if (!value) {
        Refuse("attribute \"" + std::string(name) + "\" is not a number: " + Quoted(text));
    }
    if (!std::isfinite(*value) || *value < range.least || *value > range.most) {
        Refuse("attribute \"" + std::string(name) + "\" is " + text + ", must be " + range.text);
    }
    return value;
}

std::optional<double> ElementReader::Real(const char* name) const {
    return Real(name, c_anyNumber);
}

double ElementReader::RequiredReal(const char* name, const Range& range) const {
    RequiredText(name);
    return *Real(name, range);
}

double ElementReader::RequiredReal(const char* name) const {
    return RequiredReal(name, c_anyNumber);
}

std::optional<long long> ElementReader::Integer(const char* name, long long least, long long most) const {
    if (!Has(name)) {
        return std::nullopt;
    }
    const std::string text = Text(name, {});
    const auto value = Parse<long long>(text);
    if (!value || *value < least || *value > most) {
        Refuse("attribute \"" + std::string(name) + "\" is not a whole number from " + std::to_string(least) + " to " +
               std::to_string(most) + ": " + Quoted(text));
    }
    return value;
}

}  // namespace qcfg
