#include "qreg/access.h"

#include <cmath>
#include <exception>
#include <limits>
#include <utility>
#include <variant>
#include <vector>

#include "qnode/local_node_structure.h"
#include "qnode/node.h"
#include "qreg/path_names.h"
#include "qreg/reg_node.h"

namespace qreg {

namespace {

using qnode::TreeNode;
using qnode::Value;
using qnode::enums::ValueType_e;

/// The text of the exception that is being handled.
std::string CaughtText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "Unknown Exception";
    }
}

Outcome Failure(ErrorCode_e code, std::string text) {
    return {code, {}, std::move(text)};
}

std::string Subject(const TreeNode& node) {
    return "Node \"" + node.GetName() + "\" ";
}

bool IsWritable(const TreeNode& node) {
    return (node.OnGetFlags() & RegNode::c_writable) != 0;
}

/// Which node of @p path is not there.
std::string NoNodeText(const std::shared_ptr<TreeNode>& root, std::string_view path) {
    try {
        qnode::Node(root).Find(std::string(path));
    } catch (const std::exception& error) {
        return error.what();
    }
    return "No node \"" + std::string(path) + "\"";  // it has come in the meantime
}

template <class T>
Outcome Set(TreeNode& node, const T& value) {
    node.OnSet(&value, 0, 1);
    return {};
}

bool IsInt(double value) noexcept {
    return value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max() &&
           std::trunc(value) == value;
}

Outcome WrongType(const TreeNode& node, ValueType_e type, const Value& value) {
    std::string text = Subject(node) + "takes ";
    switch (type) {
        case ValueType_e::empty:
            text += "no value";
            break;
        case ValueType_e::integer:
            text += "whole numbers from " + std::to_string(std::numeric_limits<int>::min()) + " to " +
                    std::to_string(std::numeric_limits<int>::max());
            break;
        case ValueType_e::real:
            text += "numbers";
            break;
        case ValueType_e::text:
            text += "text";
            break;
    }
    const bool isEmpty = qnode::TypeOf(value) == ValueType_e::empty;
    return Failure(ErrorCode_e::wrong_type,
                   text + (isEmpty ? ", not an empty value" : ", not " + qnode::ToText(value)));
}

Outcome Assign(TreeNode& node, const Value& value) {
    const ValueType_e type = node.OnGetValueType({});
    if (const auto* text = std::get_if<std::string>(&value); text != nullptr && type != ValueType_e::empty) {
        return Set(node, *text);
    }
    if (const auto* integer = std::get_if<int>(&value)) {
        if (type == ValueType_e::integer) {
            return Set(node, *integer);
        }
        if (type == ValueType_e::real) {
            return Set(node, static_cast<double>(*integer));
        }
    }
    if (const auto* real = std::get_if<double>(&value)) {
        if (type == ValueType_e::real) {
            return Set(node, *real);
        }
        if (type == ValueType_e::integer && IsInt(*real)) {
            return Set(node, static_cast<int>(*real));
        }
    }
    return WrongType(node, type, value);
}

/// One walk over a subtree: where it is, and the path of that.
class Walker {
public:
    Walker(const TreeNode& start, std::string_view path, std::size_t depth) : m_start(start), m_depth(depth) {
        PathNames names(path);
        for (std::string_view name; names.Next(name);) {
            Append(name);
        }
        if (depth > 0) {
            Descend(start);
        }
    }

    /// Goes to where it stood after @p after was visited. @return false when that is not below the start.
    bool SkipTo(std::string_view after) {
        PathNames names(after);
        PathNames starts(m_path);
        std::string_view name;
        for (std::string_view start; starts.Next(start);) {
            if (!names.Next(name) || name != start) {
                return false;
            }
        }
        const TreeNode* node = &m_start;
        for (std::size_t level = 1; level <= m_depth && names.Next(name); ++level) {
            const qnode::LocalNodeStructure* const structure = node->GetStructure();
            const std::size_t index = structure->FindChild(name);
            m_levels.back().next = index + 1;
            node = structure->GetChild(index).get();
            Append(name);
            if (level < m_depth) {
                Descend(*node);
            }
        }
        return true;
    }

    bool VisitStart(const std::function<bool(const Access::Step&)>& visit) const { return visit({m_start, 0, m_path}); }

    /// All below the start that was not visited yet.
    bool VisitRest(const std::function<bool(const Access::Step&)>& visit) {
        while (!m_levels.empty()) {
            Level& level = m_levels.back();
            m_path.resize(level.pathSize);
            if (level.structure == nullptr || level.next >= level.structure->CountChildren()) {
                m_levels.pop_back();
                continue;
            }
            const TreeNode& node = *level.structure->GetChild(level.next++);
            Append(node.GetName());
            if (!visit({node, m_levels.size(), m_path})) {
                return false;
            }
            if (m_levels.size() < m_depth) {
                Descend(node);
            }
        }
        return true;
    }

private:
    /// A node whose children are being visited.
    struct Level {
        const qnode::LocalNodeStructure* structure;  ///< null: it has none
        std::size_t next;                            ///< index of the child to visit next
        std::size_t pathSize;                        ///< of its own path
    };

    void Append(std::string_view name) {
        if (!m_path.empty()) {
            m_path += '/';
        }
        m_path += name;
    }

    void Descend(const TreeNode& node) { m_levels.push_back({node.GetStructure(), 0, m_path.size()}); }

    const TreeNode& m_start;
    const std::size_t m_depth;
    std::string m_path;
    std::vector<Level> m_levels;
};

}  // namespace

Access::Access(std::shared_ptr<TreeNode> root) : m_root(std::move(root)) {}

TreeNode& Access::Find(std::string_view path) const {
    TreeNode* const node = m_root->FindBelow(path);
    if (node == nullptr) {
        throw RegistryError(ErrorCode_e::no_such_node, std::string(path), NoNodeText(m_root, path));
    }
    return *node;
}

NodeInfo Access::Describe(const TreeNode& node) {
    try {
        const qnode::LocalNodeStructure* const structure = node.GetStructure();
        return {node.GetName(), node.OnGetFlags(), node.OnGetValueType({}), node.OnGetSize({}),
                structure == nullptr ? 0 : structure->CountChildren()};
    } catch (...) {
        throw RegistryError(ErrorCode_e::failed, node.GetPath(), CaughtText());
    }
}

Outcome Access::Read(const TreeNode& node) {
    Outcome outcome;
    try {
        if ((node.OnGetFlags() & RegNode::c_readable) == 0) {
            return Failure(ErrorCode_e::not_readable, Subject(node) + "has no value that clients may read");
        }
        if (!qnode::ReadValue(node, outcome.value)) {
            return node.OnGetValueType({}) == ValueType_e::empty
                       ? Failure(ErrorCode_e::not_readable, Subject(node) + "has no value")
                       : Failure(ErrorCode_e::no_value, "no value");
        }
    } catch (...) {
        return Failure(ErrorCode_e::failed, CaughtText());
    }
    if (const auto* text = std::get_if<std::string>(&outcome.value); text != nullptr && text->size() > c_longestText) {
        return Failure(ErrorCode_e::limit, Subject(node) + "has a text of " + std::to_string(text->size()) +
                                               " bytes, and at most " + std::to_string(c_longestText) +
                                               " can be passed on");
    }
    return outcome;
}

Outcome Access::Read(std::string_view path) const {
    const TreeNode* const node = m_root->FindBelow(path);
    return node != nullptr ? Read(*node) : Failure(ErrorCode_e::no_such_node, NoNodeText(m_root, path));
}

Outcome Access::ReadBeforeWrite(std::string_view path) const {
    const TreeNode* const node = m_root->FindBelow(path);
    try {
        return node != nullptr && IsWritable(*node) ? Read(*node) : Outcome{ErrorCode_e::not_writable, {}, {}};
    } catch (...) {
        return Failure(ErrorCode_e::failed, CaughtText());
    }
}

Outcome Access::Write(TreeNode& node, const Value& value) {
    try {
        if (!IsWritable(node)) {
            return Failure(ErrorCode_e::not_writable, Subject(node) + "cannot be written by clients");
        }
        return Assign(node, value);
    } catch (...) {
        return Failure(ErrorCode_e::failed, CaughtText());
    }
}

Outcome Access::Write(std::string_view path, const Value& value) const {
    TreeNode* const node = m_root->FindBelow(path);
    return node != nullptr ? Write(*node, value) : Failure(ErrorCode_e::no_such_node, NoNodeText(m_root, path));
}

bool Access::Walk(std::string_view path, std::size_t depth, std::string_view after,
                  const std::function<bool(const Step&)>& visit) const {
    Walker walker(Find(path), path, depth);
    if (after.empty()) {
        return walker.VisitStart(visit) && walker.VisitRest(visit);
    }
    Find(after);
    if (!walker.SkipTo(after)) {
        throw RegistryError(ErrorCode_e::no_such_node, std::string(after),
                            "Node \"" + std::string(after) + "\" is not below \"" + std::string(path) + "\"");
    }
    return walker.VisitRest(visit);
}

}  // namespace qreg
