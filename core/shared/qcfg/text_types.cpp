#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <boost/lexical_cast.hpp>
#include <memory>
#include <string>
#include <utility>

#include "qcfg/suggestion.h"
#include "qcfg/value_types.h"
#include "qstd/convert.h"
#include "qstd/strings.h"

namespace qcfg {

namespace {

class BooleanType : public ValueType {
public:
    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        try {
            qstd::ToBool(text);
            return {};
        } catch (const qstd::Exception&) {
            return "is not a boolean (true, false, 1, 0, yes, no, on, off)";
        }
    }
    std::string Describe(Place_e /*place*/) const override {
        return "boolean: true, false, 1, 0, yes, no, on, off, in any case";
    }
    std::string GetSchemaName(Place_e /*place*/) const override { return "boolean"; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        return {
            {"xs:string",
             {{"pattern", "[tT][rR][uU][eE]|[fF][aA][lL][sS][eE]|1|0|[yY][eE][sS]|[nN][oO]|[oO][nN]|[oO][fF][fF]"}}}};
    }
};

class TextType : public ValueType {
public:
    explicit TextType(std::string what) : m_what(std::move(what)) {}
    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        return text.empty() ? "is empty" : "";
    }
    std::string Describe(Place_e /*place*/) const override { return m_what; }
    std::string GetSchemaName(Place_e /*place*/) const override { return "text"; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        return {{"xs:string", {{"minLength", "1"}}}};
    }

private:
    std::string m_what;
};

class AddressType : public ValueType {
public:
    explicit AddressType(bool hasPrefix) : m_hasPrefix(hasPrefix) {}

    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        const auto slash = m_hasPrefix ? text.find('/') : std::string::npos;
        const std::string address = text.substr(0, slash);
        in6_addr buffer{};
        const bool isV4 = ::inet_pton(AF_INET, address.c_str(), &buffer) == 1;
        if (!isV4 && ::inet_pton(AF_INET6, address.c_str(), &buffer) != 1) {
            return "is not an IPv4 or IPv6 address" + std::string(m_hasPrefix ? " or prefix" : "");
        }
        return slash == std::string::npos ? "" : FindPrefixFault(text.substr(slash + 1), isV4);
    }
    std::string Describe(Place_e /*place*/) const override {
        return m_hasPrefix ? "IPv4 or IPv6 address, or a prefix ADDRESS/BITS" : "IPv4 or IPv6 address";
    }
    std::string GetSchemaName(Place_e /*place*/) const override { return m_hasPrefix ? "addressPrefix" : "address"; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        const std::string octet = "(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])";
        std::string v4 = "(" + octet + "\\.){3}" + octet;
        std::string v6 = "[0-9a-fA-F.]*:[0-9a-fA-F:.]*";
        if (m_hasPrefix) {
            v4 += "(/(3[0-2]|[12]?[0-9]))?";
            v6 += "(/(12[0-8]|1[01][0-9]|[1-9]?[0-9]))?";
        }
        return {{"xs:string", {{"pattern", v4}}}, {"xs:string", {{"pattern", v6}}}};
    }

private:
    static std::string FindPrefixFault(const std::string& bits, bool isV4) {
        constexpr int c_v4Bits = 32;
        constexpr int c_v6Bits = 128;
        constexpr std::size_t c_mostDigits = 3;
        const int most = isV4 ? c_v4Bits : c_v6Bits;
        const bool isNumber = !bits.empty() && bits.size() <= c_mostDigits &&
                              bits.find_first_not_of("0123456789") == std::string::npos &&
                              (bits == "0" || bits[0] != '0');
        if (!isNumber || std::stoi(bits) > most) {
            return "has a prefix length that is not in the range 0.." + std::to_string(most);
        }
        return {};
    }

    bool m_hasPrefix;
};

class IdListType : public ValueType {
public:
    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        if (text == "all") {
            return {};
        }
        const std::vector<std::string> tokens = qstd::TokenizeString(text, ',');
        if (tokens.empty()) {
            return "holds no id";
        }
        for (const std::string& token : tokens) {
            if (!IsId(token)) {
                return "holds \"" + qstd::OneLine(token) + "\", which is not an id (decimal or 0x, 32 bits, no blanks)";
            }
        }
        return {};
    }
    std::string Describe(Place_e /*place*/) const override {
        return "\"all\", or ids separated by commas without blanks, decimal or hexadecimal with 0x";
    }
    std::string GetSchemaName(Place_e /*place*/) const override { return "idList"; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        const std::string id = "([+\\-]?[0-9]+|0x0*[0-9a-fA-F]{1,8})";
        return {{"xs:string", {{"pattern", "all|,*" + id + "(,+" + id + ")*,*"}}}};
    }

private:
    static bool IsId(const std::string& token) {
        constexpr std::size_t c_leastHexSize = 3;
        try {
            if (token.size() >= c_leastHexSize && token[0] == '0' && token[1] == 'x') {
                qstd::HexTo<unsigned int>(token);
            } else {
                qstd::FromString<int>(token);
            }
            return true;
        } catch (const qstd::Exception&) {
            return false;
        }
    }
};

class NameOrNumberType : public ValueType {
public:
    NameOrNumberType(std::string schemaName, std::string what, std::vector<std::pair<std::string, long long>> items)
        : m_schemaName(std::move(schemaName)), m_what(std::move(what)), m_items(std::move(items)) {}

    std::string FindFault(const std::string& text, Place_e /*place*/) const override {
        const bool isName = Has([&text](const auto& item) { return item.first == text; });
        if (isName) {
            return {};
        }
        long long number = 0;
        if (boost::conversion::try_lexical_convert(text, number)) {
            return Has([number](const auto& item) { return item.second == number; })
                       ? ""
                       : "is not the number of a " + m_what;
        }
        std::vector<std::string> names;
        std::transform(m_items.begin(), m_items.end(), std::back_inserter(names),
                       [](const auto& item) { return item.first; });
        const std::string similar = FindSimilar(text, names);
        return "is not the name of a " + m_what + (similar.empty() ? "" : "; did you mean \"" + similar + "\"?");
    }
    std::string Describe(Place_e /*place*/) const override { return "name or number of a " + m_what; }
    std::string GetSchemaName(Place_e /*place*/) const override { return m_schemaName; }
    std::vector<SchemaForm> GetSchemaForms(Place_e /*place*/) const override {
        SchemaForm names{"xs:string", {}};
        SchemaForm numbers{"xs:integer", {}};
        for (const auto& [name, number] : m_items) {
            names.facets.emplace_back("enumeration", name);
            numbers.facets.emplace_back("enumeration", std::to_string(number));
        }
        return {names, numbers};
    }
    std::vector<std::pair<std::string, long long>> GetNames() const override { return m_items; }

private:
    template <class Predicate>
    bool Has(const Predicate& predicate) const {
        return std::any_of(m_items.begin(), m_items.end(), predicate);
    }

    std::string m_schemaName;
    std::string m_what;
    std::vector<std::pair<std::string, long long>> m_items;
};

}  // namespace

ValueTypePtr Boolean() {
    return std::make_shared<BooleanType>();
}

ValueTypePtr Text(const std::string& what) {
    return std::make_shared<TextType>(what);
}

ValueTypePtr Address() {
    return std::make_shared<AddressType>(false);
}

ValueTypePtr AddressPrefix() {
    return std::make_shared<AddressType>(true);
}

ValueTypePtr IdList() {
    return std::make_shared<IdListType>();
}

ValueTypePtr NameOrNumber(const std::string& schemaName, const std::string& what,
                          std::vector<std::pair<std::string, long long>> items) {
    return std::make_shared<NameOrNumberType>(schemaName, what, std::move(items));
}

}  // namespace qcfg
