#include "qcfg/rule_walk.h"

namespace qcfg {

// NOLINTNEXTLINE(misc-no-recursion)
void RuleWalk::Walk(const ElementRule& rule, const std::string& parentPath) {
    const std::string path = parentPath + (parentPath.empty() ? "" : " / ") + rule.name;
    WriteElement(rule, path);
    if (!rule.variants.empty()) {
        // The attribute that chooses is the first one.
        WriteAttributes({WithAllVariants(rule).attributes.front()});
    }
    WriteAttributes(rule.attributes);
    WriteChildList(rule.children);
    for (const VariantRule& variant : rule.variants) {
        WriteVariant(variant, rule.variantAttribute);
        WriteAttributes(variant.attributes);
        WriteChildList(variant.children);
    }
    for (const ElementRule& child : rule.children) {
        Walk(child, path);
    }
    for (const VariantRule& variant : rule.variants) {
        for (const ElementRule& child : variant.children) {
            Walk(child, path);
        }
    }
}

std::string RuleWalk::Describe(const ValueType& type, Place_e place) {
    if (!type.GetNames().empty()) {
        m_names.emplace(type.GetSchemaName(place), type.GetNames());
    }
    return type.Describe(place);
}

}  // namespace qcfg
