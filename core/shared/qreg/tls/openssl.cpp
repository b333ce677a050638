#include "qreg/tls/openssl.h"

#include <openssl/err.h>

#include <new>

namespace qreg::tls {

std::string TakeReason() {
    const unsigned long code = ERR_peek_last_error();
    const char* const reason = ERR_reason_error_string(code);
    const std::string text = reason != nullptr ? reason : "error " + std::to_string(code);
    ERR_clear_error();
    return code == 0 ? "no reason given" : text;
}

std::string NameText(const X509_NAME& name) {
    const BioPtr memory(BIO_new(BIO_s_mem()));
    if (memory == nullptr || X509_NAME_print_ex(memory.get(), &name, 0, XN_FLAG_RFC2253) < 0) {
        throw std::bad_alloc();
    }
    char* begin = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &begin);
    return {begin, static_cast<std::size_t>(size)};
}

}  // namespace qreg::tls
