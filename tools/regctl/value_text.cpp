#include "tools/regctl/value_text.h"

#include "qnode/notification.h"
#include "qreg/reg_node.h"
#include "qreg/subscriptions.h"
#include "qstd/from_chars.h"
#include "qstd/strings.h"
#include "qstd/time.h"

namespace regctl {

namespace {

template <class E>
std::string NameOf(E value) {
    const char* const name = qstd::EnumMap<E>::items.FindName(value);
    return name != nullptr ? name : "type-" + std::to_string(static_cast<unsigned>(value));
}

}  // namespace

std::string ValueText(const qnode::Value& value) {
    return qstd::OneLine(qnode::ToText(value));
}

std::string OutcomeText(const qreg::Outcome& outcome) {
    return outcome.code == qreg::ErrorCode_e::ok ? ValueText(outcome.value) : "(" + FailureText(outcome) + ")";
}

std::string FailureText(const qreg::Outcome& outcome) {
    return outcome.code == qreg::ErrorCode_e::no_value ? "no value" : qstd::OneLine(outcome.text);
}

qnode::Value ParseValue(const std::string& word) {
    const char* const end = word.data() + word.size();
    const bool hasPlus = word.size() > 1 && word[0] == '+' && word[1] != '-';
    double number = 0;
    const auto [stop, error] = qstd::FromChars(word.data() + (hasPlus ? 1 : 0), end, number);
    if (error == std::errc() && stop == end) {
        return number;
    }
    return word;
}

std::string TypeText(qnode::enums::ValueType_e type) {
    return NameOf(type);
}

std::string EventTypeText(std::uint16_t type) {
    return type == qreg::c_presentType ? "present" : NameOf(static_cast<qnode::NotificationType>(type));
}

std::string FlagsText(unsigned long long flags) {
    std::string text = std::to_string(flags);
    if (IsReadable(flags) || IsWritable(flags)) {
        text += " (";
        text += IsReadable(flags) ? "readable" : "";
        text += IsReadable(flags) && IsWritable(flags) ? ", " : "";
        text += IsWritable(flags) ? "writable" : "";
        text += ")";
    }
    return text;
}

bool IsReadable(unsigned long long flags) {
    return (flags & qreg::RegNode::c_readable) != 0;
}

bool IsWritable(unsigned long long flags) {
    return (flags & qreg::RegNode::c_writable) != 0;
}

std::string TimeText(std::chrono::system_clock::time_point time) {
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch());
    return qstd::Time::FromMicroseconds(microseconds.count()).ToString();
}

}  // namespace regctl
