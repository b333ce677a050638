#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "qcfg/attribute.h"
#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/source_name.h"
#include "qstd/trace_file.h"

namespace qcfg {

/// One element of a configuration tree. Once the tree is built nothing changes it, so any thread may read it.
class Element {
public:
    /// @param line line in the file, from 1; 0 when the element comes from no file.
    explicit Element(std::string name, std::string value = {}, int line = 0);

    const std::string& GetName() const noexcept { return m_name; }

    /// The element's own text, the children's left out; blanks are kept as they are.
    const std::string& GetValue() const noexcept { return m_value; }

    /// Line of the element's start tag in the file, from 1; 0 when it comes from no file.
    int GetLine() const noexcept { return m_line; }

    /// Child elements in document order.
    const std::vector<std::shared_ptr<Element>>& GetChildren() const noexcept { return m_children; }

    /// Attributes in document order.
    const std::vector<std::shared_ptr<Attribute>>& GetAttributes() const noexcept { return m_attributes; }

    /// The first child named @p name, null when there is none.
    std::shared_ptr<Element> FindChild(const std::string& name) const;

    /// Looks for the attribute @p name. @return whether it is there; only then is @p out set.
    bool FindAttr(const std::string& name, std::shared_ptr<Attribute>& out) const;

    /// The element's text as a T: text of three and more characters that begins with "0x" is hexadecimal, `bool`
    /// goes through qstd::ToBool, anything else is decimal. A text that does not convert is traced at level 2, never
    /// logged.
    /// @return false, with @p out unchanged, when the text does not convert.
    template <class T>
    bool GetValue(T& out) const {
        try {
            constexpr std::size_t c_leastHexSize = 3;
            if (m_value.size() >= c_leastHexSize && m_value[0] == '0' && m_value[1] == 'x') {
                out = static_cast<T>(qstd::HexTo<unsigned int>(m_value));
            } else if constexpr (std::is_same_v<T, bool>) {
                out = qstd::ToBool(m_value);
            } else {
                out = qstd::FromString<T>(m_value);
            }
            return true;
        } catch (const qstd::Exception& error) {
            if (qstd::TraceActiveLevel() > 1) {
                qstd::TraceWrite(2, __PRETTY_FUNCTION__, qstd::SourceName(__FILE__), __LINE__,
                                 std::string("Cannot cast from config value: ") + error.what());
            }
            return false;
        }
    }

    /// The text of the first child named @p name as a T. @return false, with @p out unchanged, when there is no such
    /// child or its text does not convert.
    template <class T>
    bool GetValue(const std::string& name, T& out) const {
        const std::shared_ptr<Element> child = FindChild(name);
        return child != nullptr && child->GetValue(out);
    }

    /// The attribute @p name as a T, see Attribute::GetValue. @return false when it is absent (with @p out unchanged
    /// and no trace) or does not convert.
    template <class T>
    bool GetAttrValue(const std::string& name, T& out) const {
        std::shared_ptr<Attribute> attribute;
        return FindAttr(name, attribute) && attribute->GetValue(out);
    }

    /// Whether there is neither attribute nor child nor any text but blanks.
    bool IsEmpty() const noexcept;

    // Building a tree; one thread, before others read it.
    void AddChild(std::shared_ptr<Element> child);
    void AddAttr(std::shared_ptr<Attribute> attribute);
    void AppendText(const std::string& text);

private:
    std::string m_name;
    std::string m_value;
    int m_line;
    std::vector<std::shared_ptr<Element>> m_children;
    std::vector<std::shared_ptr<Attribute>> m_attributes;
};

}  // namespace qcfg
