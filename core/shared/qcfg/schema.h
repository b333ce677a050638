#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "qcfg/element.h"
#include "qcfg/finding.h"
#include "qcfg/value_type.h"

// The rules of a configuration: one table that drives the checker (checker.h), the XML schema (schema_writer.h) and the
// reference pages (reference_writer.h, manual_writer.h), so that they cannot differ.

namespace qcfg {

/// How often an element may stand in its parent.
enum class Occurrence_e {
    once,       ///< it must be there, one time
    atMostOne,  ///< it may be left out
    any,        ///< any number of times, none included
};

/// "at most once", as documents say it.
std::string HowOften(Occurrence_e occurrence);

struct AttributeRule {
    std::string name{};
    ValueTypePtr type{};
    bool isRequired = false;
    std::string defaultValue{};  ///< the value when it is left out; empty: there is none, the text says what then holds
    std::string doc{};           ///< what it means and its unit, in sentences
};

struct ElementRule;

/// Rules of elements in the order in which they are told. Immutable and shared by its copies, so copying is cheap.
class RuleList {
public:
    RuleList();
    RuleList(std::initializer_list<ElementRule> rules);
    explicit RuleList(std::vector<ElementRule> rules);

    const ElementRule* begin() const noexcept;
    const ElementRule* end() const noexcept;
    bool IsEmpty() const noexcept { return begin() == end(); }

    /// A copy to make another list from.
    std::vector<ElementRule> ToVector() const;

private:
    std::shared_ptr<const std::vector<ElementRule>> m_rules;
};

/// What an element holds beside its own rules when the attribute that chooses says this variant's name.
struct VariantRule {
    std::string name{};
    std::string doc{};
    std::vector<AttributeRule> attributes{};
    RuleList children{};
};

/// One element. Attributes and children may come in any order. It holds children, or a value as its text, or neither.
struct ElementRule {
    std::string name{};
    Occurrence_e occurrence = Occurrence_e::atMostOne;
    std::string doc{};  ///< what it means and its unit, in sentences
    std::vector<AttributeRule> attributes{};
    ValueTypePtr text{};         ///< type of the element's text; null: it has none
    std::string defaultValue{};  ///< the text's value when the element is left out; empty: see doc
    RuleList children{};

    std::string variantAttribute{};       ///< the attribute that chooses a variant; empty: there are none
    std::string variantDoc{};             ///< what it means
    std::vector<VariantRule> variants{};  ///< the first one holds when the attribute is left out
    std::function<void(const Element&, Findings&)> check{};  ///< what types cannot say; called for every such element
};

/// The rule with all its variants laid over one another: everything any of them allows, and nothing required that only
/// one requires. The choosing attribute becomes an ordinary one.
ElementRule WithAllVariants(const ElementRule& rule);

/// The rule as it holds for @p element: with the variant that the element chooses, or with all when it names none that
/// exists.
ElementRule WithChosenVariant(const ElementRule& rule, const Element& element);

/// Proves a table: names are there and differ, everything has a text of explanation, defaults are values of their type,
/// no element has both a text and children. @throws qstd::Exception naming the rule and what is wrong with it.
void ProveRules(const ElementRule& rule);

}  // namespace qcfg
