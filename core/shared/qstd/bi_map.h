#pragma once

#include <cstring>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>

#include "qstd/exception.h"

namespace qstd {

/// Orders names as C strings.
struct BimapStrCmp {
    bool operator()(const char* left, const char* right) const noexcept { return std::strcmp(left, right) < 0; }
};

/// Two-way table between the values of an enumeration and their names. Immutable after construction, so safe to read
/// from any thread. Names are not copied: give literals.
template <class E>
class BiMap {
public:
    struct Item {
        E value;
        const char* name;
    };

    /// @throws Exception "invalid enum description table" when a value or a name occurs twice.
    BiMap(std::initializer_list<Item> table) {
        for (const Item& item : table) {
            const bool isNew = m_names.emplace(item.value, item.name).second &&
                               m_values.emplace(item.name, item.value).second &&
                               m_numbers.emplace(static_cast<long long>(item.value), item.name).second;
            if (!isNew) {
                throw Exception("invalid enum description table");
            }
        }
    }

    /// The name of @p value, null when the table does not hold it.
    const char* FindName(E value) const noexcept {
        const auto found = m_names.find(value);
        return found == m_names.end() ? nullptr : found->second;
    }

    /// The name of @p value. @throws Exception "invalid value" when the table does not hold it.
    std::string GetName(E value) const {
        const char* name = FindName(value);
        if (name == nullptr) {
            throw Exception("invalid value");
        }
        return name;
    }

    /// The value of a name; exact and case-sensitive.
    std::optional<E> FindValue(const std::string& name) const {
        const auto found = m_values.find(name.c_str());
        return found == m_values.end() ? std::nullopt : std::optional<E>(found->second);
    }

    /// The value whose number is @p number, when the table holds it.
    std::optional<E> FindNumber(long long number) const {
        return m_numbers.count(number) == 0 ? std::nullopt : std::optional<E>(static_cast<E>(number));
    }

    /// Value to name, in the order of the values.
    const std::map<E, const char*>& GetNames() const noexcept { return m_names; }

private:
    std::map<E, const char*> m_names;
    std::map<const char*, E, BimapStrCmp> m_values;
    std::map<long long, const char*> m_numbers;
};

}  // namespace qstd
