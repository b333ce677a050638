#include "tests/integration/registry/test_tree.h"

#include <chrono>
#include <functional>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qreg/reg_node.h"
#include "qstd/any.h"
#include "qstd/exception.h"

namespace test {

namespace {

using qnode::LocalNodeStructure;
using qnode::TreeNode;
using qnode::Value;
using qnode::enums::ValueType_e;
using qreg::RegNode;

/// A leaf that reads and takes values through functions.
class Leaf : public RegNode {
public:
    using Reader = std::function<bool(Value&)>;
    using Writer = std::function<void(const TreeNode&, const Value&)>;

    Leaf(const std::string& name, ValueType_e type, unsigned long long flags, Reader reader, Writer writer)
        : RegNode(name, flags), m_type(type), m_reader(std::move(reader)), m_writer(std::move(writer)) {}

    ValueType_e OnGetValueType(const std::string& /*path*/) const override { return m_type; }
    std::size_t OnGetSize(const std::string& /*path*/) const override { return 1; }
    bool OnGet(std::string* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        return Get(value);
    }
    bool OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const override { return Get(value); }
    bool OnGet(int* value, std::size_t /*position*/, std::size_t /*count*/) const override { return Get(value); }
    void OnSet(const std::string* value, std::size_t /*position*/, std::size_t /*count*/) override {
        m_writer(*this, m_type == ValueType_e::text ? Value(*value) : Value(std::stod(*value)));
    }
    void OnSet(const double* value, std::size_t /*position*/, std::size_t /*count*/) override {
        m_writer(*this, *value);
    }
    void OnSet(const int* value, std::size_t /*position*/, std::size_t /*count*/) override { m_writer(*this, *value); }

private:
    template <class T>
    bool Get(T* value) const {
        Value held;
        if (!m_reader(held)) {
            return false;
        }
        *value = std::get<T>(held);
        return true;
    }

    const ValueType_e m_type;
    const Reader m_reader;
    const Writer m_writer;
};

/// A leaf as cheap as one can be.
class Index : public RegNode {
public:
    explicit Index(std::size_t index)
        : RegNode("leaf_" + std::to_string(index), c_readable), m_value(static_cast<double>(index)) {}
    ValueType_e OnGetValueType(const std::string& /*path*/) const override { return ValueType_e::real; }
    std::size_t OnGetSize(const std::string& /*path*/) const override { return 1; }
    using RegNode::OnGet;
    bool OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const override {
        *value = m_value;
        return true;
    }

private:
    const double m_value;
};

std::shared_ptr<TreeNode> Container(const char* name) {
    return qnode::factory::Create<RegNode>(name);
}

std::shared_ptr<TreeNode> ReadOnly(const std::string& name, ValueType_e type, Leaf::Reader reader,
                                   unsigned long long flags = RegNode::c_readable) {
    return qnode::factory::Create<LocalNodeStructure, Leaf>(name, type, flags, std::move(reader),
                                                            [](const TreeNode&, const Value&) {});
}

std::shared_ptr<TreeNode> Constant(const std::string& name, const Value& value,
                                   unsigned long long flags = RegNode::c_readable) {
    return ReadOnly(
        name, qnode::TypeOf(value),
        [value](Value& out) {
            out = value;
            return true;
        },
        flags);
}

/// A leaf that keeps what is written. @param before called with the new value first
std::shared_ptr<TreeNode> Knob(const std::string& name, const Value& value, const Leaf::Writer& before) {
    struct Held {
        std::mutex mutex;
        Value value;
    };
    const auto held = std::make_shared<Held>();
    held->value = value;
    return qnode::factory::Create<LocalNodeStructure, Leaf>(
        name, qnode::TypeOf(value), RegNode::c_readable | RegNode::c_writable,
        [held](Value& out) {
            const std::lock_guard<std::mutex> guard(held->mutex);
            out = held->value;
            return true;
        },
        [held, before](const TreeNode& node, const Value& in) {
            before(node, in);
            const std::lock_guard<std::mutex> guard(held->mutex);
            held->value = in;
        });
}

void Sleep(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::shared_ptr<TreeNode> Values() {
    auto values = Container("values");
    values->Attach(Constant("number", 1.5))
        ->Attach(Constant("whole", 7))
        ->Attach(Constant("text", std::string("grün")))
        ->Attach(ReadOnly("nothing", ValueType_e::real, [](Value&) { return false; }))
        ->Attach(ReadOnly("broken", ValueType_e::real,
                          [](Value&) -> bool { throw qstd::Exception("the bus is stuck", true); }))
        ->Attach(ReadOnly("slow", ValueType_e::real,
                          [](Value& out) {
                              Sleep(300);
                              out = 3.0;
                              return true;
                          }))
        ->Attach(Constant("hidden", 4.0, 0))
        ->Attach(Constant("long", std::string(70000, 'x')));
    return values;
}

std::shared_ptr<TreeNode> Knobs() {
    auto knobs = Container("knobs");
    const auto nothing = [](const TreeNode&, const Value&) {};
    knobs
        ->Attach(Knob("speed", 100.0,
                      [](const TreeNode& node, const Value& value) {
                          constexpr double c_most = 10000;
                          if (std::get<double>(value) > c_most) {
                              throw qstd::Exception("Too high value: " + qnode::ToText(value), true);
                          }
                          const auto self = std::const_pointer_cast<TreeNode>(node.shared_from_this());
                          qnode::Node(self).Emit(qnode::NotificationType::value, qstd::Any(std::get<double>(value)));
                      }))
        ->Attach(Knob("steps", 3, nothing))
        ->Attach(Knob("label", std::string("a"), nothing))
        ->Attach(Knob("stiff", 0.0, [](const TreeNode&, const Value&) {
            std::cout << "stiff begins" << std::endl;
            Sleep(400);
            std::cout << "stiff ends" << std::endl;
        }));
    return knobs;
}

}  // namespace

std::shared_ptr<TreeNode> MakeTestTree(std::size_t leaves) {
    constexpr std::size_t c_texts = 100;
    constexpr std::size_t c_length = 60000;
    auto root = Container("root");
    auto many = Container("many");
    for (std::size_t i = 0; i < leaves; ++i) {
        many->Attach(qnode::factory::Create<LocalNodeStructure, Index>(i));
    }
    auto texts = Container("texts");
    for (std::size_t i = 0; i < c_texts; ++i) {
        texts->Attach(Constant("text_" + std::to_string(i), std::string(c_length, 'a')));
    }
    root->Attach(Values())->Attach(Knobs())->Attach(many)->Attach(texts);
    return root;
}

}  // namespace test
