#pragma once

#include <cstdint>

namespace test {

/// Whether nobody listens on UDP @p port of 127.0.0.1.
bool IsFreePort(std::uint16_t port);

/// Asks on @p port of 127.0.0.1 what a controller tells without a session. @return whether an answer came within 50 ms.
bool AnswersOnPort(std::uint16_t port);

}  // namespace test
