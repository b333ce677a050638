#include "qnode/node.h"

#include <exception>
#include <utility>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qnode {

namespace {

template <class T>
bool ReadAs(const TreeNode& node, Value& value) {
    T typed{};
    if (!node.OnGet(&typed, 0, 1)) {
        return false;
    }
    value = std::move(typed);
    return true;
}

/// What a dump shows after the name: " = value", or nothing for a node that never has one.
std::string ShownValue(const TreeNode& node, std::size_t maxValueLen) {
    std::string text;
    try {
        if (node.OnGetValueType({}) == enums::ValueType_e::empty) {
            return {};
        }
        Value value;
        text = ReadValue(node, value) ? ToText(value) : "(no value)";
    } catch (const std::exception& error) {
        text = error.what();
    } catch (...) {
        text = "Unknown Exception";
    }
    return " = " + text.substr(0, maxValueLen);
}

// The depth of the recursion is that of the tree, which the program itself builds.
// NOLINTNEXTLINE(misc-no-recursion)
void Dump(const TreeNode& node, int level, int depth, std::size_t maxValueLen, std::string& text) {
    constexpr std::size_t c_indent = 2;
    text.append(static_cast<std::size_t>(level) * c_indent, ' ');
    text.append(node.GetName()).append(ShownValue(node, maxValueLen)).append("\n");
    if (depth >= 0 && level >= depth) {
        return;
    }
    for (const auto& child : node.GetChildren()) {
        Dump(*child, level + 1, depth, maxValueLen, text);
    }
}

}  // namespace

Node Node::Find(const std::string& path) const {
    std::shared_ptr<TreeNode> node = m_node;
    for (const std::string& name : qstd::TokenizeString(path, '/')) {
        std::shared_ptr<TreeNode> child = node->FindChild(name);
        if (child == nullptr) {
            std::string text = "No node \"";
            text += name + "\" under \"" + node->GetName();
            text += "\" (path \"" + path + "\")";
            throw qstd::Exception(std::move(text), true);
        }
        node = std::move(child);
    }
    return Node(std::move(node));
}

bool Node::GetValue(Value& value) const {
    return ReadValue(*m_node, value);
}

std::string Node::DumpSubTree(int depth, int /*mode*/, std::size_t maxValueLen) const {
    std::string text;
    Dump(*m_node, 0, depth, maxValueLen, text);
    return text;
}

bool ReadValue(const TreeNode& node, Value& value) {
    switch (node.OnGetValueType({})) {
        case enums::ValueType_e::integer:
            return ReadAs<int>(node, value);
        case enums::ValueType_e::real:
            return ReadAs<double>(node, value);
        case enums::ValueType_e::text:
            return ReadAs<std::string>(node, value);
        case enums::ValueType_e::empty:
            break;
    }
    return false;
}

}  // namespace qnode
