#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qcfg/schema.h"

namespace qcfg {

/// Goes through a table of rules as documents tell them: an element with its attributes and the list of its children,
/// then each variant, told one by one, with its own, then the children themselves. What a document looks like is up to
/// who derives from it. For one thread.
class RuleWalk {
public:
    RuleWalk() = default;
    RuleWalk(const RuleWalk&) = delete;
    RuleWalk& operator=(const RuleWalk&) = delete;
    virtual ~RuleWalk() = default;

protected:
    /// Numbers by the names of a type's values.
    using Names = std::vector<std::pair<std::string, long long>>;

    void Walk(const ElementRule& rule, const std::string& parentPath = "");

    /// The type in words. Keeps the names that its values have.
    std::string Describe(const ValueType& type, Place_e place);

    /// All names of values that were described, by the title of their type.
    const std::map<std::string, Names>& GetNames() const noexcept { return m_names; }

private:
    /// The element itself and its text. @param path "zelkor / monitor"
    virtual void WriteElement(const ElementRule& rule, const std::string& path) = 0;
    virtual void WriteAttributes(const std::vector<AttributeRule>& attributes) = 0;
    virtual void WriteChildList(const RuleList& children) = 0;
    /// What comes before a variant's attributes. @param attribute the one that chooses it
    virtual void WriteVariant(const VariantRule& variant, const std::string& attribute) = 0;

    std::map<std::string, Names> m_names;
};

}  // namespace qcfg
