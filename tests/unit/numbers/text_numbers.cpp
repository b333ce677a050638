// Text to numbers and back.

#include <fmt/format.h>

#include <bit>
#include <limits>
#include <typeinfo>

#include "number_table.h"
#include "qnode/value.h"
#include "qstd/any.h"
#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/from_chars.h"

namespace test {

namespace {

std::string Real(double value) {
    return qnode::ToText(value);
}

template <class T>
std::string Number(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        return Real(value);
    } else {
        return fmt::format("{}", value);
    }
}

template <class Function>
std::string OutcomeOf(Function function) {
    try {
        return Number(function());
    } catch (const qstd::Exception& exception) {
        return exception.what();
    }
}

template <class T>
void AddConversionsTo(NumberSection& section) {
    for (const char* const text : {"",
                                   "0",
                                   "-0",
                                   "-1",
                                   "+5",
                                   "007",
                                   "127",
                                   "128",
                                   "255",
                                   "256",
                                   "32767",
                                   "32768",
                                   "65535",
                                   "65536",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "-2147483649",
                                   "4294967295",
                                   "4294967296",
                                   "-4294967295",
                                   "9223372036854775807",
                                   "9223372036854775808",
                                   "18446744073709551615",
                                   "18446744073709551616",
                                   " 1",
                                   "1 ",
                                   "1,5",
                                   "1.5",
                                   "1e3",
                                   "0x10",
                                   "nan",
                                   "-nan",
                                   "inf",
                                   "-inf",
                                   "1e400",
                                   "1e-400",
                                   "4.9e-324",
                                   "0.1",
                                   "1.7976931348623157e308"}) {
        section.Add(fmt::format("FromString<{}>(\"{}\") = {}", qstd::CppName(typeid(T)), text,
                                OutcomeOf([&] { return qstd::FromString<T>(text); })));
        if constexpr (std::is_integral_v<T>) {
            section.Add(fmt::format("HexTo<{}>(\"{}\") = {}", qstd::CppName(typeid(T)), text,
                                    OutcomeOf([&] { return qstd::HexTo<T>(text); })));
        }
    }
}

std::string BothReals(const std::string& text) {
    double value = 0;
    qstd::FromChars(text.data(), text.data() + text.size(), value);
    return text + " " + Real(value) + " " + Real(qstd::FromString<double>(text));
}

std::string WholeText(NumberSource& source) {
    return std::to_string(source.Next() >> (source.Next() % 64));
}

double AnyReal(NumberSource& source) {
    for (;;) {
        const auto value = std::bit_cast<double>(source.Next());
        if (value == value) {
            return value;
        }
    }
}

}  // namespace

std::string TextNumbers() {
    NumberSection conversions("text to a number, with the names of types in messages");
    AddConversionsTo<short>(conversions);
    AddConversionsTo<unsigned short>(conversions);
    AddConversionsTo<int>(conversions);
    AddConversionsTo<unsigned int>(conversions);
    AddConversionsTo<long long>(conversions);
    AddConversionsTo<unsigned long long>(conversions);
    AddConversionsTo<double>(conversions);
    conversions.Add(OutcomeOf([] { return qstd::Any(1.5).Get<int>(); }));
    conversions.Add(OutcomeOf([] { return qstd::Any(7).Get<double>(); }));
    conversions.Add(OutcomeOf([] { return qstd::Any(7U).Get<unsigned short>(); }));

    NumberSource source;
    NumberSection reals("decimal text to a double, by both ways that there are", 5000);
    // Those that an older floating-point unit gets wrong.
    for (const char* const text : {"23519.246403e19", "154799.849606e19", "437719.286363e19"}) {
        reals.Add(BothReals(text));
    }
    for (int i = 0; i < 100000; ++i) {
        std::string text = WholeText(source) + "." + WholeText(source);
        if (i % 2 == 1) {
            text += "e" + std::to_string(static_cast<int>(source.Next() % 80) - 40);
        }
        reals.Add(BothReals(text));
    }

    NumberSection texts("a double to text: six digits, and as many as read back to it", 2500);
    for (int i = 0; i < 50000; ++i) {
        const double value = i % 2 == 0 ? AnyReal(source) : static_cast<double>(source.Next() % 1000000) / 1000;
        texts.Add(qstd::NumberText(value) + " " + Real(value));
    }
    for (const double value :
         {0.0, -0.0, 0.5, 1.5, 2.5, 999999.5, 1e6, 1e-5, 0.0001, std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
          std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max()}) {
        texts.Add(qstd::NumberText(value) + " " + Real(value));
    }
    return conversions.Text() + reals.Text() + texts.Text();
}

}  // namespace test
