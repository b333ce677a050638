#include "tests/support/ipmi/cipher_suite_17.h"

#include <OpenIPMI/lanserv.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

// Tables of the simulator's library, which its header does not declare: handlers by algorithm number, and the
// combinations that sessions may ask for.
extern "C" {
extern auth_handlers_t* auths[];
extern integ_handlers_t* integs[];
extern int valid_cipher_suites[][3];
}

namespace test {

namespace {

constexpr int c_suite17[3] = {3, 4, 1};
constexpr int c_suiteReplaced[3] = {2, 3, 3};  // RAKP-HMAC-MD5, MD5-128, xRC4-40
constexpr std::size_t c_hashLength = 32;
constexpr unsigned int c_integrityLength = 16;
constexpr std::size_t c_constantLength = 20;  // of the constants that K1 and K2 are made from
constexpr unsigned int c_keyLength = 20;
constexpr std::uint8_t c_rakp2 = 0x13;
constexpr std::size_t c_rmcpHeader = 4;
constexpr std::size_t c_payloadTypeAt = c_rmcpHeader + 1;
constexpr std::size_t c_payloadLengthAt = c_rmcpHeader + 10;

using Hash = std::array<std::uint8_t, c_hashLength>;
using Bytes = std::vector<std::uint8_t>;
using SendOut = void (*)(lanserv_data_t*, iovec*, int, void*, int);

// The session's own room for keys is made for SHA1.
struct Keys {
    Hash session;
    Hash k1;
};

std::map<const session_t*, Keys>& AllKeys() {
    static std::map<const session_t*, Keys> keys;
    return keys;
}

std::map<const lanserv_data_t*, SendOut>& Senders() {
    static std::map<const lanserv_data_t*, SendOut> senders;
    return senders;
}

// The library's buffer for this message ends 8 bytes before the hash would: they are added on the way out.
Bytes& RestOfRakp2() {
    static Bytes rest;
    return rest;
}

Hash Hmac(const std::uint8_t* key, std::size_t keyLength, const std::uint8_t* data, std::size_t length) {
    Hash hash{};
    unsigned int hashLength = 0;
    HMAC(EVP_sha256(), key, static_cast<int>(keyLength), data, length, hash.data(), &hashLength);
    return hash;
}

void Append(Bytes& bytes, const std::uint8_t* data, std::size_t length) {
    bytes.insert(bytes.end(), data, data + length);
}

void Append(Bytes& bytes, std::uint32_t number) {
    std::array<std::uint8_t, 4> data{};
    ipmi_set_uint32(data.data(), static_cast<int>(number));
    Append(bytes, data.data(), data.size());
}

void AppendUser(Bytes& bytes, const auth_data_t& auth) {
    bytes.push_back(auth.role);
    bytes.push_back(auth.username_len);
    Append(bytes, auth.username, auth.username_len);
}

const std::uint8_t* Password(const lanserv_data_t& lan, const session_t& session) {
    return lan.users[session.userid].pw;
}

void SendWithRest(lanserv_data_t* lan, iovec* parts, int count, void* address, int addressLength) {
    Bytes packet;
    for (int i = 0; i < count; ++i) {
        Append(packet, static_cast<const std::uint8_t*>(parts[i].iov_base), parts[i].iov_len);
    }
    Bytes& rest = RestOfRakp2();
    if (!rest.empty() && packet.size() > c_payloadLengthAt + 1 && packet[c_payloadTypeAt] == c_rakp2) {
        Append(packet, rest.data(), rest.size());
        packet[c_payloadLengthAt] = static_cast<std::uint8_t>(packet[c_payloadLengthAt] + rest.size());
    }
    rest.clear();
    iovec whole{packet.data(), packet.size()};
    Senders().at(lan)(lan, &whole, 1, address, addressLength);
}

int InitAuthentication(lanserv_data_t* lan, session_t* session) {
    session->auth_data.akey = EVP_sha256();
    session->auth_data.akey_len = c_keyLength;
    session->auth_data.integ_len = c_integrityLength;
    if (Senders().try_emplace(lan, lan->send_out).second) {
        lan->send_out = SendWithRest;
    }
    return 0;
}

void MakeKeys(const lanserv_data_t& lan, session_t& session) {
    auth_data_t& auth = session.auth_data;
    Keys& keys = AllKeys()[&session];
    Bytes input;
    Append(input, auth.rem_rand, sizeof auth.rem_rand);
    Append(input, auth.rand, sizeof auth.rand);
    AppendUser(input, auth);
    const std::uint8_t* key = lan.bmc_key != nullptr ? lan.bmc_key : Password(lan, session);
    keys.session = Hmac(key, c_keyLength, input.data(), input.size());
    const Bytes ones(c_constantLength, 1);
    const Bytes twos(c_constantLength, 2);
    keys.k1 = Hmac(keys.session.data(), keys.session.size(), ones.data(), ones.size());
    const Hash k2 = Hmac(keys.session.data(), keys.session.size(), twos.data(), twos.size());
    // Encryption takes the first 16 bytes from here.
    std::copy_n(k2.begin(), sizeof auth.k2, auth.k2);
}

int SetRakp2(lanserv_data_t* lan, session_t* session, unsigned char* data, unsigned int* length, unsigned int size) {
    const auth_data_t& auth = session->auth_data;
    Bytes input;
    Append(input, session->rem_sid);
    Append(input, session->sid);
    Append(input, auth.rem_rand, sizeof auth.rem_rand);
    Append(input, auth.rand, sizeof auth.rand);
    Append(input, lan->guid, 16);
    AppendUser(input, auth);
    const Hash hash = Hmac(Password(*lan, *session), c_keyLength, input.data(), input.size());
    const std::size_t fitting = std::min<std::size_t>(hash.size(), size - *length);
    std::copy_n(hash.begin(), fitting, data + *length);
    *length += static_cast<unsigned int>(fitting);
    RestOfRakp2().assign(hash.begin() + static_cast<std::ptrdiff_t>(fitting), hash.end());
    MakeKeys(*lan, *session);
    return 0;
}

int CheckRakp3(lanserv_data_t* lan, session_t* session, unsigned char* data, unsigned int* length) {
    if (*length < 8 + c_hashLength) {
        return E2BIG;
    }
    const auth_data_t& auth = session->auth_data;
    Bytes input;
    Append(input, auth.rand, sizeof auth.rand);
    Append(input, session->rem_sid);
    AppendUser(input, auth);
    const Hash hash = Hmac(Password(*lan, *session), c_keyLength, input.data(), input.size());
    *length -= static_cast<unsigned int>(c_hashLength);
    return CRYPTO_memcmp(data + *length, hash.data(), hash.size()) == 0 ? 0 : EINVAL;
}

int SetRakp4(lanserv_data_t* lan, session_t* session, unsigned char* data, unsigned int* length, unsigned int size) {
    if (*length + c_integrityLength > size) {
        return E2BIG;
    }
    Bytes input;
    Append(input, session->auth_data.rem_rand, sizeof session->auth_data.rem_rand);
    Append(input, session->sid);
    Append(input, lan->guid, 16);
    const Hash& key = AllKeys()[session].session;
    const Hash hash = Hmac(key.data(), key.size(), input.data(), input.size());
    std::copy_n(hash.begin(), c_integrityLength, data + *length);
    *length += c_integrityLength;
    return 0;
}

int InitIntegrity(lanserv_data_t* /*lan*/, session_t* session) {
    session->auth_data.integ_len = c_integrityLength;
    return 0;
}

void CleanUp(lanserv_data_t* /*lan*/, session_t* session) {
    AllKeys().erase(session);
}

// The hash covers the packet from the session header on, which begins after the RMCP header.
int AddIntegrity(lanserv_data_t* /*lan*/, session_t* session, unsigned char* packet, unsigned int* length,
                 unsigned int size) {
    if (*length + c_integrityLength > size) {
        return E2BIG;
    }
    const Hash& key = AllKeys()[session].k1;
    const Hash hash = Hmac(key.data(), key.size(), packet + c_rmcpHeader, *length - c_rmcpHeader);
    std::copy_n(hash.begin(), c_integrityLength, packet + *length);
    *length += c_integrityLength;
    return 0;
}

int CheckIntegrity(lanserv_data_t* /*lan*/, session_t* session, msg_t* message) {
    if (message->len < c_integrityLength + 5) {
        return E2BIG;
    }
    const std::size_t covered = message->len - c_integrityLength;
    const Hash& key = AllKeys()[session].k1;
    const Hash hash = Hmac(key.data(), key.size(), message->data, covered);
    return CRYPTO_memcmp(message->data + covered, hash.data(), c_integrityLength) == 0 ? 0 : EINVAL;
}

auth_handlers_t g_authentication{InitAuthentication, SetRakp2, CheckRakp3, SetRakp4};
integ_handlers_t g_integrity{InitIntegrity, CleanUp, AddIntegrity, CheckIntegrity};

}  // namespace

bool AddCipherSuite17() {
    for (int(*suite)[3] = valid_cipher_suites; (*suite)[0] >= 0; ++suite) {
        if (std::equal(*suite, *suite + 3, c_suite17)) {
            return true;
        }
        if (std::equal(*suite, *suite + 3, c_suiteReplaced)) {
            std::copy_n(c_suite17, 3, *suite);
            auths[c_suite17[0]] = &g_authentication;
            integs[c_suite17[1]] = &g_integrity;
            return true;
        }
    }
    return false;
}

}  // namespace test
