#include "bmc/ipmi/password.h"

#include <algorithm>
#include <cstring>

#include "qstd/exception.h"
#include "qstd/secret_file.h"

namespace bmc::ipmi {

namespace {

constexpr std::size_t c_moreThanGood = Secret::c_maxSize + 2;

std::string KindOf(const PasswordSource& source) {
    return source.isCredential ? "credential" : "password file";
}

[[noreturn]] void Refuse(const PasswordSource& source, const std::string& text) {
    throw qstd::Exception(KindOf(source) + " " + source.path + ": " + text);
}

}  // namespace

Secret::Secret(const char* text, std::size_t size) : m_size(std::min(size, c_maxSize)) {
    std::copy_n(text, m_size, m_text.begin());
}

Secret::~Secret() {
    ::explicit_bzero(m_text.data(), m_text.size());
}

Secret ReadPassword(const PasswordSource& source) {
    const qstd::SecretFile file(KindOf(source), source.path, source.isCredential, c_moreThanGood);
    const char* const begin = file.Reveal().data();
    const char* const end = begin + file.Reveal().size();
    const char* const newline = std::find(begin, end, '\n');
    if (newline != end && newline + 1 != end) {
        Refuse(source, "has more than one line; the password is the only one");
    }
    const auto size = static_cast<std::size_t>(newline - begin);
    if (size == 0) {
        Refuse(source, "has no password in its first line");
    }
    if (size > Secret::c_maxSize) {
        Refuse(source, "the password has more than " + std::to_string(Secret::c_maxSize) + " bytes");
    }
    constexpr unsigned char c_delete = 0x7f;
    if (std::any_of(begin, newline, [](char letter) {
            const auto byte = static_cast<unsigned char>(letter);
            return byte < ' ' || byte == c_delete;
        })) {
        Refuse(source, "the password holds a control character");
    }
    return {begin, size};
}

}  // namespace bmc::ipmi
