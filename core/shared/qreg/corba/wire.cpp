#include "qreg/corba/wire.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <variant>

#include "qstd/clock.h"

namespace qreg::corba {

namespace {

std::size_t SizeOfText(const qnode::Value& value) noexcept {
    const std::string* const text = std::get_if<std::string>(&value);
    return text == nullptr ? 0 : text->size();
}

}  // namespace

void ToWire(const qnode::Value& value, ::reg::Value& wire) {
    std::visit(
        [&wire](const auto& held) {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, int>) {
                wire.whole(held);
            } else if constexpr (std::is_same_v<Held, double>) {
                wire.number(held);
            } else if constexpr (std::is_same_v<Held, std::string>) {
                wire.characters(held.c_str());
            } else {
                wire.none(0);
            }
        },
        value);
}

void ToWire(const Outcome& outcome, ::reg::Outcome& wire) {
    wire.code = static_cast<::reg::ErrorCode>(outcome.code);
    if (!outcome.text.empty()) {
        wire.text = outcome.text.c_str();
    }
}

void ToWire(const Outcome& outcome, ::reg::Value& wire) {
    if (outcome.code == ErrorCode_e::ok) {
        ToWire(outcome.value, wire);
        return;
    }
    ::reg::Outcome failure;
    ToWire(outcome, failure);
    wire.failure(failure);
}

void ToWire(const NodeInfo& info, ::reg::NodeInfo& wire) {
    wire.name = info.name.c_str();
    wire.flags = info.flags;
    wire.type = static_cast<::reg::DataType>(info.type);
    wire.size = static_cast<CORBA::ULong>(info.size);
    wire.children = static_cast<CORBA::ULong>(info.children);
}

void ToWire(const Event& event, ::reg::Event& wire) {
    wire.seq = event.sequence;
    wire.type = event.type;
    wire.at = ToWire(event.time);
    wire.path = event.path.c_str();
    ToWire(event.value, wire.val);
}

void ToWire(const Lease& lease, ::reg::Lease& wire) {
    wire.id = lease.id.c_str();
    wire.lease_s = static_cast<CORBA::ULong>(lease.lease.count());
    wire.queue_limit = static_cast<CORBA::ULong>(lease.queueLimit);
}

::reg::Error ToWire(const RegistryError& error) {
    std::string text = error.what();
    Shorten(text, c_longestText);
    std::string path = error.GetPath();
    Shorten(path, c_longestText);
    return {static_cast<::reg::ErrorCode>(error.GetCode()), path.c_str(), text.c_str()};
}

::reg::Time ToWire(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

::reg::Time Now() {
    return ToWire(qstd::Clock::Get().SystemNow());
}

qnode::Value FromWire(const ::reg::NewValue& wire) {
    switch (wire._d()) {
        case ::reg::TYPE_EMPTY:
            return {};
        case ::reg::TYPE_INTEGER: {
            const CORBA::LongLong whole = wire.whole();
            if (whole >= std::numeric_limits<int>::min() && whole <= std::numeric_limits<int>::max()) {
                return static_cast<int>(whole);
            }
            return static_cast<double>(whole);
        }
        case ::reg::TYPE_DOUBLE:
            return wire.number();
        case ::reg::TYPE_STRING:
            return std::string(wire.characters());
        default:
            throw RegistryError(ErrorCode_e::wrong_type, {},
                                "This server knows no values of type " + std::to_string(wire._d()));
    }
}

Filter FromWire(const ::reg::Filter& wire) {
    Filter filter;
    filter.patterns.reserve(wire.patterns.length());
    for (CORBA::ULong i = 0; i < wire.patterns.length(); ++i) {
        filter.patterns.emplace_back(static_cast<const char*>(wire.patterns[i]));
    }
    filter.types = static_cast<std::uint32_t>(wire.types);
    filter.queueLimit = wire.queue_limit;
    filter.lease = std::chrono::seconds(wire.lease_s);
    filter.wantsPresent = wire.present;
    return filter;
}

void Shorten(std::string& text, std::size_t size) {
    if (text.size() <= size) {
        return;
    }
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) {
        --size;
    }
    text.resize(size);
}

// Fixed parts with all the gaps that alignment can make; every text takes a length, its bytes and a zero.

std::size_t SizeOf(const Outcome& outcome) noexcept {
    return c_outcomeSize + outcome.text.size() + SizeOfText(outcome.value);
}

std::size_t SizeOf(const NodeInfo& info) noexcept {
    return 40 + info.name.size();
}

std::size_t SizeOf(const Event& event) noexcept {
    return 56 + event.path.size() + SizeOfText(event.value);
}

}  // namespace qreg::corba
