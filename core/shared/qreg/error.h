#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "qstd/bi_map.h"
#include "qstd/enum_map.h"
#include "qstd/exception.h"

namespace qreg {

/// Why a request of a client was not done. The numbers are part of the registry protocol and never change; others may
/// be added.
enum class ErrorCode_e : std::uint32_t {
    ok = 0,
    no_such_node = 1,          ///< the path leads nowhere
    no_value = 2,              ///< the node has a value, but not now
    not_readable = 3,          ///< the node has no value that clients may read
    not_writable = 4,          ///< clients may not write the node
    wrong_type = 5,            ///< the node does not take a value of this type
    denied = 6,                ///< this client may not write
    limit = 7,                 ///< a limit of the server; the text names it
    failed = 8,                ///< the node raised an error; the text is its own
    no_such_subscription = 9,  ///< never was, was ended, or its lease ran out
    no_such_view = 10,         ///< never was, or was closed
    not_offered = 11,          ///< switched off in this server's configuration
    stopping = 12,             ///< the server is about to end
};

/// A request of a client that was not done. The text is complete: it is shown as it stands.
class RegistryError : public qstd::Exception {
public:
    RegistryError(ErrorCode_e code, std::string path, const std::string& text)
        : qstd::Exception(text, true), m_code(code), m_path(std::move(path)) {}

    ErrorCode_e GetCode() const noexcept { return m_code; }
    const std::string& GetPath() const noexcept { return m_path; }

private:
    ErrorCode_e m_code;
    std::string m_path;
};

}  // namespace qreg

namespace qstd {

template <>
const BiMap<qreg::ErrorCode_e> EnumMap<qreg::ErrorCode_e>::items;

}  // namespace qstd
