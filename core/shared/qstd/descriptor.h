#pragma once

#include <unistd.h>

namespace qstd {

/// A file descriptor, or what stands for none (negative), closed at the end.
class Descriptor {
public:
    explicit Descriptor(int value) noexcept : m_value(value) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_value >= 0) {
            ::close(m_value);
        }
    }
    int Get() const noexcept { return m_value; }

private:
    const int m_value;
};

}  // namespace qstd
