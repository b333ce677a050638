#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qcfg {

/// Where a value stands; the same type may be written in more ways in a text than in an attribute, as qcfg::Element and
/// qcfg::Attribute read them.
enum class Place_e {
    attribute,  ///< numbers are decimal
    text,       ///< numbers are decimal, or hexadecimal when they begin with "0x"
};

/// One way to write a value, in the terms of a W3C XML schema: a built-in type and facets that narrow it.
struct SchemaForm {
    std::string base;                                         ///< "xs:string" and the like
    std::vector<std::pair<std::string, std::string>> facets;  ///< facet and its value
};

/// What may be written as a value: the checker, the XML schema and the reference page ask the same object. Immutable,
/// so safe to use from any thread.
class ValueType {
public:
    ValueType() = default;
    ValueType(const ValueType&) = delete;
    ValueType& operator=(const ValueType&) = delete;
    virtual ~ValueType() = default;

    /// What is wrong with @p text, to be read after the value itself: "is above the limit of 65535". Empty when it is
    /// fine. Stricter than the typed readers of Element and Attribute, never laxer.
    virtual std::string FindFault(const std::string& text, Place_e place) const = 0;

    /// What to write, for people: "whole number 1..60".
    virtual std::string Describe(Place_e place) const = 0;

    /// Name of the type in the XML schema; equal for equal types only.
    virtual std::string GetSchemaName(Place_e place) const = 0;

    /// The ways to write a value, of which a text takes one. Weaker than FindFault where a schema cannot say it.
    virtual std::vector<SchemaForm> GetSchemaForms(Place_e place) const = 0;

    /// Names and numbers of an enumeration; empty for any other type.
    virtual std::vector<std::pair<std::string, long long>> GetNames() const { return {}; }
};

using ValueTypePtr = std::shared_ptr<const ValueType>;

}  // namespace qcfg
