#include "qreg/corba/client_values.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <utility>

namespace qreg::corba::client {

namespace {

constexpr std::size_t c_longestPath = 511;
constexpr std::size_t c_longestText = 65535;

/// A whole number; one that does not fit into an int is a double when that is exact, else the text of its digits.
qnode::Value ToWhole(CORBA::LongLong whole) {
    if (whole >= std::numeric_limits<int>::min() && whole <= std::numeric_limits<int>::max()) {
        return static_cast<int>(whole);
    }
    constexpr CORBA::LongLong c_exact = 1LL << std::numeric_limits<double>::digits;
    if (whole >= -c_exact && whole <= c_exact) {
        return static_cast<double>(whole);
    }
    return std::to_string(whole);
}

/// Times that the clock cannot hold become the nearest one that it can.
std::chrono::system_clock::time_point ToTime(reg::Time microseconds) {
    using Clock = std::chrono::system_clock;
    constexpr auto c_most = std::chrono::duration_cast<std::chrono::microseconds>(Clock::duration::max());
    const std::chrono::microseconds time(std::clamp<reg::Time>(microseconds, -c_most.count(), c_most.count()));
    return Clock::time_point(std::chrono::duration_cast<Clock::duration>(time));
}

/// What keeps @p text from being sent as a string of the protocol, empty when nothing does.
std::string TextProblem(const char* what, const std::string& text, std::size_t longest) {
    if (text.size() > longest) {
        return "a " + std::string(what) + " of " + std::to_string(text.size()) + " bytes cannot be sent, the most is " +
               std::to_string(longest);
    }
    return text.find('\0') == std::string::npos ? "" : "a " + std::string(what) + " cannot hold a zero byte";
}

}  // namespace

qnode::Value ToValue(const reg::Value& value) {
    switch (value._d()) {
        case reg::TYPE_EMPTY:
        case reg::TYPE_FAILURE:
            return {};
        case reg::TYPE_INTEGER:
            return ToWhole(value.whole());
        case reg::TYPE_DOUBLE:
            return static_cast<double>(value.number());
        case reg::TYPE_STRING:
            return std::string(value.characters());
        default:
            return "(unknown type " + std::to_string(value._d()) + ")";
    }
}

Outcome ToOutcome(const reg::Outcome& outcome) {
    return {static_cast<ErrorCode_e>(outcome.code), {}, std::string(outcome.text)};
}

Outcome ToOutcome(const reg::Value& value) {
    return value._d() == reg::TYPE_FAILURE ? ToOutcome(value.failure()) : Outcome{ErrorCode_e::ok, ToValue(value), {}};
}

Outcome ToOutcome(const reg::Item& item) {
    if (item.val._d() == reg::TYPE_EMPTY) {
        return {ErrorCode_e::not_readable, {}, {}};
    }
    return ToOutcome(item.val);
}

NodeInfo ToNodeInfo(const reg::NodeInfo& info) {
    return {std::string(info.name), info.flags, static_cast<qnode::enums::ValueType_e>(info.type), info.size,
            info.children};
}

Batch ToBatch(const reg::Batch& batch) {
    Batch result;
    result.lost = batch.lost;
    result.more = batch.more;
    result.events.reserve(batch.events.length());
    for (CORBA::ULong i = 0; i < batch.events.length(); ++i) {
        const reg::Event& event = batch.events[i];
        result.events.push_back(std::make_shared<const Event>(
            Event{event.seq, event.type, ToTime(event.at), std::string(event.path), ToValue(event.val)}));
    }
    return result;
}

std::pair<double, ErrorCode_e> ToReading(const Outcome& outcome) {
    if (const auto* const real = std::get_if<double>(&outcome.value)) {
        return {*real, outcome.code};
    }
    if (const auto* const whole = std::get_if<int>(&outcome.value)) {
        return {*whole, outcome.code};
    }
    return {std::numeric_limits<double>::quiet_NaN(),
            outcome.code == ErrorCode_e::ok ? ErrorCode_e::wrong_type : outcome.code};
}

const char* ToPath(const std::string& path) {
    const std::string problem = TextProblem("path", path, c_longestPath);
    if (!problem.empty()) {
        throw RegistryError(ErrorCode_e::limit, path, problem);
    }
    return path.c_str();
}

reg::NewValue ToNewValue(const std::string& path, const qnode::Value& value) {
    reg::NewValue result;
    if (const auto* const whole = std::get_if<int>(&value)) {
        result.whole(*whole);
    } else if (const auto* const real = std::get_if<double>(&value)) {
        result.number(*real);
    } else if (const auto* const text = std::get_if<std::string>(&value)) {
        const std::string problem = TextProblem("text", *text, c_longestText);
        if (!problem.empty()) {
            throw RegistryError(ErrorCode_e::limit, path, problem);
        }
        result.characters(text->c_str());
    } else {
        result.none(0);
    }
    return result;
}

}  // namespace qreg::corba::client
