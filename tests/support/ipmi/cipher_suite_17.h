#pragma once

namespace test {

/// Adds cipher suite 17 (RAKP-HMAC-SHA256, HMAC-SHA256-128, AES-CBC-128) to the simulator that this module is loaded
/// into, in the place of one with MD5. @return whether the simulator's library is one that it can be added to.
bool AddCipherSuite17();

}  // namespace test
