#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qnode/factory.h"
#include "qnode/tree_node.h"
#include "qnode/value.h"

namespace test {

/// A node whose value is what a function answers; an empty answer is no value at present.
class AskedNode : public qnode::TreeNode {
public:
    using Answer = std::function<qnode::Value()>;

    AskedNode(const std::string& name, qnode::enums::ValueType_e type, Answer answer)
        : TreeNode(name), m_type(type), m_answer(std::move(answer)) {}

    qnode::enums::ValueType_e OnGetValueType(const std::string& /*path*/) const override { return m_type; }
    bool OnGet(std::string* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        return Get(value);
    }
    bool OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const override { return Get(value); }
    bool OnGet(int* value, std::size_t /*position*/, std::size_t /*count*/) const override { return Get(value); }

private:
    template <class T>
    bool Get(T* value) const {
        const qnode::Value answer = m_answer();
        if (qnode::TypeOf(answer) == qnode::enums::ValueType_e::empty) {
            return false;
        }
        *value = std::get<T>(answer);
        return true;
    }

    const qnode::enums::ValueType_e m_type;
    const Answer m_answer;
};

inline std::shared_ptr<qnode::TreeNode> Asked(const std::string& name, qnode::enums::ValueType_e type,
                                              AskedNode::Answer answer) {
    return qnode::factory::Create<qnode::LocalNodeStructure, AskedNode>(name, type, std::move(answer));
}

inline std::shared_ptr<qnode::TreeNode> Plain(const std::string& name) {
    return qnode::factory::Create<qnode::LocalNodeStructure, qnode::TreeNode>(name);
}

}  // namespace test
