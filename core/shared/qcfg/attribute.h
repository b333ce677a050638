#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/source_name.h"
#include "qstd/trace_file.h"

namespace qcfg {

/// One attribute of an element. Immutable, so safe to read from any thread.
class Attribute {
public:
    Attribute(std::string name, std::string value) : m_name(std::move(name)), m_value(std::move(value)) {}

    const std::string& GetName() const noexcept { return m_name; }

    /// The attribute's text.
    const std::string& GetValue() const noexcept { return m_value; }

    /// The text as a T: `bool` through qstd::ToBool, anything else as a decimal number. A text that does not convert
    /// is traced at level 2, never logged.
    /// @return false when the text does not convert; a `bool` is then left unchanged, a number becomes 0.
    template <class T>
    bool GetValue(T& out) const {
        try {
            if constexpr (std::is_same_v<T, bool>) {
                out = qstd::ToBool(m_value);
            } else {
                out = qstd::FromString<T>(m_value);
            }
            return true;
        } catch (const qstd::Exception& error) {
            if (qstd::TraceActiveLevel() > 1) {
                std::string text;
                if constexpr (std::is_same_v<T, bool>) {
                    text = "Cannot cast from config value: Wrong bool value " + m_value + " .Error: " + error.what();
                } else {
                    text = std::string("Cannot cast from config value: ") + error.what();
                }
                qstd::TraceWrite(2, __PRETTY_FUNCTION__, qstd::SourceName(__FILE__), __LINE__, text);
            }
            if constexpr (!std::is_same_v<T, bool>) {
                out = T{};
            }
            return false;
        }
    }

private:
    std::string m_name;
    std::string m_value;
};

}  // namespace qcfg
