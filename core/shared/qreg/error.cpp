#include "qreg/error.h"

namespace qstd {

using qreg::ErrorCode_e;

template <>
const BiMap<ErrorCode_e> EnumMap<ErrorCode_e>::items{{ErrorCode_e::ok, "ok"},
                                                     {ErrorCode_e::no_such_node, "no such node"},
                                                     {ErrorCode_e::no_value, "no value"},
                                                     {ErrorCode_e::not_readable, "not readable"},
                                                     {ErrorCode_e::not_writable, "not writable"},
                                                     {ErrorCode_e::wrong_type, "wrong type"},
                                                     {ErrorCode_e::denied, "denied"},
                                                     {ErrorCode_e::limit, "limit"},
                                                     {ErrorCode_e::failed, "failed"},
                                                     {ErrorCode_e::no_such_subscription, "no such subscription"},
                                                     {ErrorCode_e::no_such_view, "no such view"},
                                                     {ErrorCode_e::not_offered, "not offered"},
                                                     {ErrorCode_e::stopping, "stopping"}};

}  // namespace qstd
