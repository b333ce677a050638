#include "qstd/exception.h"

#include <utility>

namespace qstd {

Exception::Exception(std::string text, bool flag) : m_text(std::move(text)), m_flag(flag) {}

const char* Exception::what() const noexcept {
    return m_text.c_str();
}

bool Exception::GetFlag() const noexcept {
    return m_flag;
}

}  // namespace qstd
