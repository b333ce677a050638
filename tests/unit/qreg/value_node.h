#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>

#include "qnode/factory.h"
#include "qreg/reg_node.h"

namespace test {

/// A node that holds one value of type T (int, double or std::string), which a test gives and takes away. Any thread.
template <class T>
class ValueNode : public qreg::RegNode {
public:
    explicit ValueNode(const std::string& name, std::optional<T> value = std::nullopt,
                       unsigned long long flags = c_readable | c_writable)
        : RegNode(name, flags), m_value(std::move(value)) {}

    qnode::enums::ValueType_e OnGetValueType(const std::string& /*path*/) const override {
        using qnode::enums::ValueType_e;
        return std::is_same_v<T, int>      ? ValueType_e::integer
               : std::is_same_v<T, double> ? ValueType_e::real
                                           : ValueType_e::text;
    }
    std::size_t OnGetSize(const std::string& /*path*/) const override { return 1; }

    using RegNode::OnGet;
    bool OnGet(T* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        if (onGet) {
            onGet();
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_value) {
            *value = *m_value;
        }
        return m_value.has_value();
    }

    using RegNode::OnSet;
    void OnSet(const T* value, std::size_t /*position*/, std::size_t /*count*/) override {
        if (onSet) {
            onSet();
        }
        Put(*value);
    }

    void Put(std::optional<T> value) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_value = std::move(value);
    }
    std::optional<T> Held() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_value;
    }

    std::function<void()> onGet;  ///< called by every read; may throw
    std::function<void()> onSet;  ///< called before a value is taken; may throw

private:
    mutable std::mutex m_mutex;  ///< guards m_value
    std::optional<T> m_value;
};

inline std::shared_ptr<qnode::TreeNode> Container(const std::string& name) {
    return qnode::factory::Create<qnode::LocalNodeStructure, qreg::RegNode>(name);
}

/// Adds a value node below @p parent.
template <class T>
std::shared_ptr<ValueNode<T>> AddValue(const std::shared_ptr<qnode::TreeNode>& parent, const std::string& name,
                                       std::optional<T> value = std::nullopt,
                                       unsigned long long flags = qreg::RegNode::c_readable |
                                                                  qreg::RegNode::c_writable) {
    return std::static_pointer_cast<ValueNode<T>>(
        parent->Add(qnode::factory::Create<qnode::LocalNodeStructure, ValueNode<T>>(name, value, flags)));
}

}  // namespace test
