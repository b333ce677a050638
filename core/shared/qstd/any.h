#pragma once

#include <boost/any.hpp>
#include <typeinfo>
#include <utility>

#include "qstd/convert.h"
#include "qstd/exception.h"

namespace qstd {

/// Holds one copyable value of any type; registry notifications carry their value in it.
/// A value type: distinct objects may be used from distinct threads.
class Any {
public:
    /// Holds nothing.
    Any() = default;

    /// Holds a copy of @p value.
    template <class T>
    explicit Any(T value) : m_value(std::move(value)) {}

    bool IsEmpty() const noexcept { return m_value.empty(); }

    /// The type held; `typeid(void)` when empty.
    const std::type_info& GetType() const noexcept { return m_value.type(); }

    /// The value held, which must be exactly a T.
    /// @throws Exception naming both types when another type, or nothing, is held.
    template <class T>
    const T& Get() const {
        const T* held = boost::any_cast<T>(&m_value);
        if (held == nullptr) {
            throw Exception("Bad any cast from " + CppName(GetType()) + " to " + CppName(typeid(T)));
        }
        return *held;
    }

private:
    boost::any m_value;
};

}  // namespace qstd
