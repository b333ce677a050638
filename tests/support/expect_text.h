#pragma once

#include <functional>
#include <string>

#include "qstd/exception.h"

namespace test {

/// The text of the qstd::Exception that @p action raises; "(no exception)" when it raises none. Others pass through.
inline std::string TextOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return "(no exception)";
}

}  // namespace test
