#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "qcfg/element.h"
#include "qstd/enum_map.h"

namespace qcfg {

/// A closed range of numbers, with how a message calls it.
struct Range {
    double least;
    double most;
    const char* text;  ///< for example "greater than 0"
};

/// Typed access to the attributes of one element, that takes nothing it does not know: every failure is a
/// qstd::Exception "FILE:LINE: text". Used by one thread; the element outlives it.
class ElementReader {
public:
    ElementReader(const Element& element, const std::string& fileName) : m_element(element), m_fileName(fileName) {}

    /// Refuses attributes and child elements other than the given ones, and text other than blanks.
    void CheckContent(std::initializer_list<const char*> attributes, std::initializer_list<const char*> children) const;

    bool Has(const char* name) const;

    /// The attribute's text, or @p fallback. Control characters are refused.
    std::string Text(const char* name, const std::string& fallback) const;
    std::string RequiredText(const char* name) const;

    /// The attribute as a finite number in @p range.
    std::optional<double> Real(const char* name, const Range& range) const;
    std::optional<double> Real(const char* name) const;
    double RequiredReal(const char* name, const Range& range) const;
    double RequiredReal(const char* name) const;

    /// The attribute as a decimal integer.
    std::optional<long long> Integer(const char* name, long long least, long long most) const;

    /// The attribute as a name or number of the enumeration @p E; an unknown one is refused.
    template <class E>
    E Enum(const char* name, E fallback) const {
        if (!Has(name)) {
            return fallback;
        }
        const std::string text = Text(name, {});
        try {
            return qstd::EnumFromString<E>(text);
        } catch (const qstd::Exception&) {
            std::vector<std::string> known;
            for (const auto& [value, valueName] : qstd::EnumMap<E>::items.GetNames()) {
                known.emplace_back(valueName);
            }
            RefuseUnknown(Quoted(text) + " is no " + name, text, known, "\"", "\"");
        }
    }

    [[noreturn]] void Refuse(const std::string& text) const;

    static std::string Quoted(const std::string& text);

private:
    /// Refuses with @p what and either the known name that @p given is near to or all of them.
    [[noreturn]] void RefuseUnknown(const std::string& what, const std::string& given,
                                    const std::vector<std::string>& known, const char* before, const char* after) const;

    const Element& m_element;
    const std::string& m_fileName;
};

}  // namespace qcfg
