#pragma once

#include <string>

namespace qreg::corba {

/// 128 random bits from the system as 32 hexadecimal digits. @throws qstd::Exception when the system has none.
std::string RandomId();

}  // namespace qreg::corba
