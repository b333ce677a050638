#include "qreg/tls/subject.h"

#include <cctype>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "qreg/tls/openssl.h"
#include "qstd/exception.h"

namespace qreg::tls {

namespace {

using ObjectPtr = std::unique_ptr<ASN1_OBJECT, Free<ASN1_OBJECT_free>>;
using TypePtr = std::unique_ptr<ASN1_TYPE, Free<ASN1_TYPE_free>>;

/// One attribute of a name: "CN=operator".
struct NameAttribute {
    std::string type;
    std::string value;       ///< without escapes; its DER encoding when isEncoded
    bool isEncoded = false;  ///< was given as "#" and hexadecimal digits
    bool isInSet = false;    ///< stands behind a "+"
};

std::optional<char> HexByte(std::string_view digits) {
    constexpr int c_base = 16;
    if (digits.size() < 2 || std::isxdigit(static_cast<unsigned char>(digits[0])) == 0 ||
        std::isxdigit(static_cast<unsigned char>(digits[1])) == 0) {
        return std::nullopt;
    }
    return static_cast<char>(std::stoi(std::string(digits.substr(0, 2)), nullptr, c_base));
}

/// Takes a text apart by the grammar of RFC 4514.
class NameReader {
public:
    explicit NameReader(const std::string& text) : m_text(text), m_rest(text) {}

    /// In the order of the text.
    std::vector<NameAttribute> Read() {
        std::vector<NameAttribute> attributes;
        char separator = ',';
        do {
            NameAttribute attribute;
            attribute.isInSet = separator == '+';
            attribute.type = ReadType();
            SkipBlanks();
            if (!m_rest.empty() && m_rest.front() == '#') {
                attribute.isEncoded = true;
                attribute.value = ReadEncoded();
            } else {
                attribute.value = ReadValue();
            }
            attributes.push_back(std::move(attribute));
            separator = TakeSeparator();
        } while (separator != '\0');
        return attributes;
    }

    [[noreturn]] void Refuse(const std::string& reason) const {
        throw qstd::Exception("\"" + m_text + "\" is not the subject of a certificate: " + reason);
    }

private:
    void SkipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(' '), m_rest.size())); }

    std::string ReadType() {
        SkipBlanks();
        const std::size_t end = m_rest.find('=');
        std::string type(m_rest.substr(0, end));
        type.erase(type.find_last_not_of(' ') + 1);
        if (end == std::string_view::npos || type.empty() || type.find_first_of(",+\\\"") != std::string::npos) {
            Refuse("\"" + std::string(m_rest) + "\" does not begin with an attribute and \"=\" as \"CN=\"");
        }
        m_rest.remove_prefix(end + 1);
        return type;
    }

    std::string ReadEncoded() {
        std::string bytes;
        m_rest.remove_prefix(1);
        while (const auto byte = HexByte(m_rest)) {
            bytes += *byte;
            m_rest.remove_prefix(2);
        }
        SkipBlanks();
        return bytes;
    }

    std::string ReadValue() {
        std::string value;
        std::size_t kept = 0;  // without the blanks at the end that are not escaped
        while (!m_rest.empty() && m_rest.front() != ',' && m_rest.front() != '+') {
            const bool isEscaped = m_rest.front() == '\\';
            value += isEscaped ? TakeEscape() : TakePlain();
            kept = isEscaped || value.back() != ' ' ? value.size() : kept;
        }
        value.resize(kept);
        return value;
    }

    char TakePlain() {
        const char letter = m_rest.front();
        if (letter == '"' || letter == '<' || letter == '>' || letter == ';') {
            Refuse(std::string(1, letter) + " stands without a \"\\\" before it");
        }
        m_rest.remove_prefix(1);
        return letter;
    }

    char TakeEscape() {
        m_rest.remove_prefix(1);
        if (const auto byte = HexByte(m_rest)) {
            m_rest.remove_prefix(2);
            return *byte;
        }
        if (m_rest.empty() || std::string_view(",+\"\\<>;=# ").find(m_rest.front()) == std::string_view::npos) {
            Refuse("behind \"\\\" stands neither a letter that needs it nor two hexadecimal digits");
        }
        const char letter = m_rest.front();
        m_rest.remove_prefix(1);
        return letter;
    }

    /// Null at the end.
    char TakeSeparator() {
        if (m_rest.empty()) {
            return '\0';
        }
        const char separator = m_rest.front();
        if (separator != ',' && separator != '+') {
            Refuse("\"" + std::string(m_rest) + "\" stands where \",\" or the end is expected");
        }
        m_rest.remove_prefix(1);
        return separator;
    }

    const std::string& m_text;
    std::string_view m_rest;
};

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Adds the attribute to the name. @param set 0: a part of its own; -1: beside the one added last
void Add(X509_NAME& name, const NameAttribute& attribute, int set, const NameReader& reader) {
    const ObjectPtr type(OBJ_txt2obj(attribute.type.c_str(), 0));
    if (type == nullptr) {
        TakeReason();
        reader.Refuse("there is no attribute \"" + attribute.type + "\" (as CN, O, OU, C, emailAddress, or a number)");
    }
    int kind = MBSTRING_UTF8;
    std::string value = attribute.value;
    if (attribute.isEncoded) {
        const unsigned char* begin = Bytes(value);
        const TypePtr decoded(d2i_ASN1_TYPE(nullptr, &begin, static_cast<long>(value.size())));
        if (decoded == nullptr || begin != Bytes(value) + value.size() || decoded->type == V_ASN1_BOOLEAN ||
            decoded->type == V_ASN1_NULL || decoded->type == V_ASN1_OBJECT) {
            TakeReason();
            reader.Refuse("the value of " + attribute.type + " does not decode");
        }
        kind = decoded->type;
        const ASN1_STRING& string = *decoded->value.asn1_string;
        value.assign(reinterpret_cast<const char*>(ASN1_STRING_get0_data(&string)),
                     static_cast<std::size_t>(ASN1_STRING_length(&string)));
    }
    if (value.empty() || X509_NAME_add_entry_by_OBJ(&name, type.get(), kind, Bytes(value),
                                                    static_cast<int>(value.size()), -1, set) != 1) {
        reader.Refuse("the value of " + attribute.type +
                      " cannot be one: " + (value.empty() ? "it is empty" : TakeReason()));
    }
}

/// The name as a certificate would hold it: the attributes of one part in their order there.
NamePtr Encoded(const X509_NAME& name) {
    unsigned char* bytes = nullptr;
    const int size = i2d_X509_NAME(&name, &bytes);
    const unsigned char* begin = bytes;
    NamePtr encoded(size > 0 ? d2i_X509_NAME(nullptr, &begin, size) : nullptr);
    OPENSSL_free(bytes);
    if (encoded == nullptr) {
        throw qstd::Exception("The subject of a certificate cannot be encoded: " + TakeReason());
    }
    return encoded;
}

}  // namespace

std::string SubjectOf(const x509_st& certificate) {
    return NameText(*X509_get_subject_name(&certificate));
}

std::string CanonicalSubject(const std::string& text) {
    NameReader reader(text);
    const std::vector<NameAttribute> attributes = reader.Read();
    const NamePtr name(X509_NAME_new());
    if (name == nullptr) {
        throw std::bad_alloc();
    }
    // Texts have the last part of a name first.
    bool isBeside = false;
    for (auto attribute = attributes.rbegin(); attribute != attributes.rend(); ++attribute) {
        Add(*name, *attribute, isBeside ? -1 : 0, reader);
        isBeside = attribute->isInSet;
    }
    return NameText(*Encoded(*name));
}

}  // namespace qreg::tls
