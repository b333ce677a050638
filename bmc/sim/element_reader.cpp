#include "bmc/sim/element_reader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>

#include "bmc/sim/control_protocol.h"
#include "qcfg/document.h"
#include "qstd/exception.h"
#include "qstd/strings.h"

namespace bmc::sim {

namespace {

constexpr Range c_anyNumber{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max(), "finite"};

/// How many letters have to be put in, taken out or replaced to make @p left out of @p right.
std::size_t EditDistance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

/// The known name that is most likely meant by @p given; null when none is near.
const std::string* NearestName(const std::string& given, const std::vector<std::string>& known) {
    constexpr std::size_t c_longestName = 40;
    constexpr std::size_t c_largestDistance = 2;
    const std::string* nearest = nullptr;
    std::size_t least = std::min(c_largestDistance, given.size() / 2) + 1;
    for (const std::string& name : known) {
        const std::size_t distance = given.size() > c_longestName ? c_longestName : EditDistance(given, name);
        if (distance < least) {
            least = distance;
            nearest = &name;
        }
    }
    return nearest;
}

bool IsKnown(const std::string& name, std::initializer_list<const char*> known) {
    return std::any_of(known.begin(), known.end(), [&name](const char* each) { return name == each; });
}

}  // namespace

std::string ElementReader::Quoted(const std::string& text) {
    return "\"" + qstd::OneLine(text) + "\"";
}

void ElementReader::Refuse(const std::string& text) const {
    throw qstd::Exception(qcfg::AtLine(m_fileName, m_element.GetLine(), text));
}

void ElementReader::RefuseUnknown(const std::string& what, const std::string& given,
                                  const std::vector<std::string>& known, const char* before, const char* after) const {
    if (const std::string* const nearest = NearestName(given, known)) {
        Refuse(what + ", did you mean " + before + *nearest + after + "?");
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
    std::shared_ptr<qcfg::Attribute> attribute;
    return m_element.FindAttr(name, attribute);
}

std::string ElementReader::Text(const char* name, const std::string& fallback) const {
    std::shared_ptr<qcfg::Attribute> attribute;
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
    const std::optional<double> value = ParseReal(text);
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
    const auto value = ParseInteger(text, least, most);
    if (!value) {
        Refuse("attribute \"" + std::string(name) + "\" is not a whole number from " + std::to_string(least) + " to " +
               std::to_string(most) + ": " + Quoted(text));
    }
    return value;
}

}  // namespace bmc::sim
