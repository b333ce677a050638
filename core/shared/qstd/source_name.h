#pragma once

#include <string_view>

namespace qstd {

/// The name under which a trace record shows its source: the path that the build gives the file, without its suffix.
/// Framework sources read "core/shared/qstd/log", sources of the daemon "monitor".
constexpr std::string_view SourceName(std::string_view path) {
    const auto dot = path.rfind('.');
    const auto slash = path.rfind('/');
    return dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash) ? path
                                                                                             : path.substr(0, dot);
}

}  // namespace qstd
