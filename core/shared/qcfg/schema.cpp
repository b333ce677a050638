#include "qcfg/schema.h"

#include <memory>
#include <set>
#include <utility>

#include "qcfg/value_types.h"
#include "qstd/exception.h"

namespace qcfg {

namespace {

/// The attribute that chooses among the variants, which takes their names only.
class VariantNameType : public ValueType {
public:
    explicit VariantNameType(const ElementRule& rule) : m_schemaName(rule.name + "-" + rule.variantAttribute) {
        for (const VariantRule& variant : rule.variants) {
            m_names.push_back(variant.name);
        }
    }
    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        for (const std::string& name : m_names) {
            if (name == text) {
                return {};
            }
        }
        return "is not known (known: " + List() + ")";
    }
    std::string Describe(Place_e /*place*/) const override { return "one of: " + List(); }
    std::string GetSchemaName(Place_e /*place*/) const override { return m_schemaName; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        SchemaForm form{"xs:string", {}};
        for (const std::string& name : m_names) {
            form.facets.emplace_back("enumeration", name);
        }
        return {form};
    }

private:
    std::string List() const {
        std::string list;
        for (const std::string& name : m_names) {
            list += (list.empty() ? "" : ", ") + name;
        }
        return list;
    }

    std::string m_schemaName;
    std::vector<std::string> m_names;
};

/// The rule without variants, the choosing attribute an ordinary one.
ElementRule WithoutVariants(const ElementRule& rule) {
    ElementRule result = rule;
    if (!rule.variants.empty()) {
        result.attributes.insert(result.attributes.begin(), {.name = rule.variantAttribute,
                                                             .type = std::make_shared<VariantNameType>(rule),
                                                             .defaultValue = rule.variants.front().name,
                                                             .doc = rule.variantDoc});
        result.variantAttribute.clear();
        result.variants.clear();
    }
    return result;
}

void AddVariant(ElementRule& rule, const VariantRule& variant) {
    rule.attributes.insert(rule.attributes.end(), variant.attributes.begin(), variant.attributes.end());
    std::vector<ElementRule> children = rule.children.ToVector();
    children.insert(children.end(), variant.children.begin(), variant.children.end());
    rule.children = RuleList(std::move(children));
}

[[noreturn]] void Refuse(const std::string& path, const std::string& reason) {
    throw qstd::Exception("Configuration rule " + path + ": " + reason);
}

void ProveDefault(const std::string& path, const ValueType& type, const std::string& value, Place_e place) {
    const std::string fault = value.empty() ? std::string() : type.FindFault(value, place);
    if (!fault.empty()) {
        Refuse(path, "default \"" + value + "\" " + fault);
    }
}

void ProveAttributes(const std::string& path, const ElementRule& rule) {
    std::set<std::string> names;
    for (const AttributeRule& attribute : rule.attributes) {
        const std::string place = path + "/@" + attribute.name;
        if (attribute.name.empty() || !names.insert(attribute.name).second) {
            Refuse(place, "attribute without a name of its own");
        }
        if (attribute.type == nullptr || attribute.doc.empty()) {
            Refuse(place, "type or explanation is missing");
        }
        if (attribute.isRequired && !attribute.defaultValue.empty()) {
            Refuse(place, "required, yet it has a default");
        }
        ProveDefault(place, *attribute.type, attribute.defaultValue, Place_e::attribute);
    }
}

/// The depth is that of the table.
// NOLINTNEXTLINE(misc-no-recursion)
void ProveElement(const std::string& parentPath, const ElementRule& given) {
    const ElementRule rule = WithAllVariants(given);
    const std::string path = parentPath + "/" + rule.name;
    if (rule.name.empty() || rule.doc.empty()) {
        Refuse(path, "name or explanation is missing");
    }
    if (given.variants.empty() != given.variantAttribute.empty()) {
        Refuse(path, "variants and the attribute that chooses one go together");
    }
    if (rule.text != nullptr && !rule.children.IsEmpty()) {
        Refuse(path, "has both a text and children");
    }
    if (rule.text != nullptr) {
        ProveDefault(path, *rule.text, rule.defaultValue, Place_e::text);
    }
    ProveAttributes(path, rule);
    std::set<std::string> names;
    for (const ElementRule& child : rule.children) {
        ProveElement(path, child);
        if (!names.insert(child.name).second) {
            Refuse(path, "has two rules for its child " + child.name);
        }
    }
}

}  // namespace

std::string HowOften(Occurrence_e occurrence) {
    switch (occurrence) {
        case Occurrence_e::once:
            return "once";
        case Occurrence_e::atMostOne:
            return "at most once";
        case Occurrence_e::any:
            return "any number";
    }
    return {};
}

RuleList::RuleList() : RuleList(std::vector<ElementRule>()) {}

RuleList::RuleList(std::initializer_list<ElementRule> rules) : RuleList(std::vector<ElementRule>(rules)) {}

RuleList::RuleList(std::vector<ElementRule> rules)
    : m_rules(std::make_shared<const std::vector<ElementRule>>(std::move(rules))) {}

const ElementRule* RuleList::begin() const noexcept {
    return m_rules->data();
}

const ElementRule* RuleList::end() const noexcept {
    return m_rules->data() + m_rules->size();
}

std::vector<ElementRule> RuleList::ToVector() const {
    return *m_rules;
}

ElementRule WithAllVariants(const ElementRule& rule) {
    ElementRule result = WithoutVariants(rule);
    const bool isChoice = rule.variants.size() > 1;
    for (VariantRule variant : rule.variants) {
        for (AttributeRule& attribute : variant.attributes) {
            attribute.isRequired = attribute.isRequired && !isChoice;
        }
        std::vector<ElementRule> children = variant.children.ToVector();
        for (ElementRule& child : children) {
            child.occurrence =
                isChoice && child.occurrence == Occurrence_e::once ? Occurrence_e::atMostOne : child.occurrence;
        }
        variant.children = RuleList(std::move(children));
        AddVariant(result, variant);
    }
    return result;
}

ElementRule WithChosenVariant(const ElementRule& rule, const Element& element) {
    if (rule.variants.empty()) {
        return rule;
    }
    std::shared_ptr<Attribute> chosen;
    const bool isGiven = element.FindAttr(rule.variantAttribute, chosen);
    for (const VariantRule& variant : rule.variants) {
        if (!isGiven || chosen->GetValue() == variant.name) {
            ElementRule result = WithoutVariants(rule);
            AddVariant(result, variant);
            return result;
        }
    }
    return WithAllVariants(rule);
}

void ProveRules(const ElementRule& rule) {
    ProveElement("", rule);
}

}  // namespace qcfg
