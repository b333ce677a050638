#include <boost/lexical_cast.hpp>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "qcfg/value_types.h"
#include "qstd/convert.h"

namespace qcfg {

namespace {

/// What Element::GetValue takes for a hexadecimal number: 32 bits.
constexpr const char* c_hexPattern = "0x0*[0-9a-fA-F]{1,8}";
constexpr const char* c_realPattern = "[+\\-]?([0-9]+(\\.[0-9]*)?|\\.[0-9]+)([eE][+\\-]?[0-9]+)?";

bool IsHex(const std::string& text, Place_e place) {
    constexpr std::size_t c_leastHexSize = 3;
    return place == Place_e::text && text.size() >= c_leastHexSize && text[0] == '0' && text[1] == 'x';
}

std::optional<unsigned int> ReadHex(const std::string& text) {
    try {
        return qstd::HexTo<unsigned int>(text);
    } catch (const qstd::Exception&) {
        return std::nullopt;
    }
}

constexpr const char* c_badHex = "is not a hexadecimal number of at most 32 bits";

bool IsSignedDigits(const std::string& text) {
    const std::size_t begin = !text.empty() && (text[0] == '+' || text[0] == '-') ? 1 : 0;
    return begin < text.size() && text.find_first_not_of("0123456789", begin) == std::string::npos;
}

std::string AsSchemaName(std::string text) {
    for (char& letter : text) {
        if (letter == '+') {
            letter = '_';
        }
    }
    return text;
}

std::string HexToo(Place_e place) {
    return place == Place_e::text ? ", or hexadecimal with 0x" : "";
}

std::string HexSuffix(Place_e place) {
    return place == Place_e::text ? "-or-hex" : "";
}

std::vector<SchemaForm> WithHex(SchemaForm form, Place_e place) {
    std::vector<SchemaForm> forms{std::move(form)};
    if (place == Place_e::text) {
        forms.push_back({"xs:string", {{"pattern", c_hexPattern}}});
    }
    return forms;
}

class WholeType : public ValueType {
public:
    WholeType(long long least, long long most) : m_least(least), m_most(most) {}

    std::string FindFault(const std::string& text, Place_e place) const override {
        if (IsHex(text, place)) {
            const std::optional<unsigned int> number = ReadHex(text);
            return number ? CompareWithLimits(*number) : c_badHex;
        }
        if (!IsSignedDigits(text)) {
            return "is not a whole number";
        }
        long long number = 0;
        if (!boost::conversion::try_lexical_convert(text, number)) {
            number = text[0] == '-' ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
        }
        return CompareWithLimits(number);
    }

    std::string Describe(Place_e place) const override {
        return "whole number " + std::to_string(m_least) + ".." + std::to_string(m_most) + HexToo(place);
    }

    std::string GetSchemaName(Place_e place) const override {
        return "whole-" + std::to_string(m_least) + "-" + std::to_string(m_most) + HexSuffix(place);
    }

    std::vector<SchemaForm> GetSchemaForms(Place_e place) const override {
        return WithHex(
            {"xs:integer", {{"minInclusive", std::to_string(m_least)}, {"maxInclusive", std::to_string(m_most)}}},
            place);
    }

private:
    std::string CompareWithLimits(long long number) const {
        if (number < m_least) {
            return "is below the limit of " + std::to_string(m_least);
        }
        return number > m_most ? "is above the limit of " + std::to_string(m_most) : "";
    }

    long long m_least;
    long long m_most;
};

/// A whole number that is written in an attribute as others are in a text.
class WholeOrHexType : public ValueType {
public:
    WholeOrHexType(long long least, long long most) : m_type(least, most) {}

    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        return m_type.FindFault(text, Place_e::text);
    }
    std::string Describe(Place_e /*place*/) const override { return m_type.Describe(Place_e::text); }
    std::string GetSchemaName(Place_e /*place*/) const override { return m_type.GetSchemaName(Place_e::text); }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        return m_type.GetSchemaForms(Place_e::text);
    }

private:
    WholeType m_type;
};

class RealType : public ValueType {
public:
    RealType(double least, double most) : m_least(least), m_most(most) {}

    std::string FindFault(const std::string& text, Place_e place) const override {
        double number = 0;
        if (IsHex(text, place)) {
            const std::optional<unsigned int> hex = ReadHex(text);
            if (!hex) {
                return c_badHex;
            }
            number = *hex;
        } else if (!boost::conversion::try_lexical_convert(text, number) || !std::isfinite(number)) {
            return "is not a finite number";
        }
        if (number < m_least) {
            return "is below the limit of " + qstd::NumberText(m_least);
        }
        return number > m_most ? "is above the limit of " + qstd::NumberText(m_most) : "";
    }

    std::string Describe(Place_e place) const override {
        std::string text = "number";
        if (std::isfinite(m_least) && std::isfinite(m_most)) {
            text += " " + qstd::NumberText(m_least) + ".." + qstd::NumberText(m_most);
        } else if (std::isfinite(m_least)) {
            text += " of at least " + qstd::NumberText(m_least);
        } else if (std::isfinite(m_most)) {
            text += " of at most " + qstd::NumberText(m_most);
        }
        return text + HexToo(place);
    }

    std::string GetSchemaName(Place_e place) const override {
        return AsSchemaName("number-" + qstd::NumberText(m_least) + "-" + qstd::NumberText(m_most)) + HexSuffix(place);
    }

    std::vector<SchemaForm> GetSchemaForms(Place_e place) const override {
        SchemaForm form{"xs:double", {{"pattern", c_realPattern}}};
        if (std::isfinite(m_least)) {
            form.facets.emplace_back("minInclusive", qstd::NumberText(m_least));
        }
        if (std::isfinite(m_most)) {
            form.facets.emplace_back("maxInclusive", qstd::NumberText(m_most));
        }
        return WithHex(std::move(form), place);
    }

private:
    double m_least;
    double m_most;
};

}  // namespace

ValueTypePtr Whole(long long least, long long most) {
    return std::make_shared<WholeType>(least, most);
}

ValueTypePtr WholeOrHex(long long least, long long most) {
    return std::make_shared<WholeOrHexType>(least, most);
}

ValueTypePtr Real(double least, double most) {
    return std::make_shared<RealType>(least, most);
}

}  // namespace qcfg
