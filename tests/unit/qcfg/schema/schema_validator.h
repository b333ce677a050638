#pragma once

#include <libxml/parser.h>
#include <libxml/xmlschemas.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace test {

/// Validates documents by an XML schema, as `xmllint --schema` does. For one thread.
class SchemaValidator {
public:
    /// @throws std::runtime_error when @p schema is no valid schema.
    explicit SchemaValidator(const std::string& schema) : m_text(schema) {
        const std::unique_ptr<xmlSchemaParserCtxt, void (*)(xmlSchemaParserCtxt*)> parser(
            xmlSchemaNewMemParserCtxt(m_text.data(), static_cast<int>(m_text.size())), xmlSchemaFreeParserCtxt);
        xmlSchemaSetParserStructuredErrors(parser.get(), TakeError, &m_errors);
        m_schema.reset(xmlSchemaParse(parser.get()));
        if (m_schema == nullptr || !m_errors.empty()) {
            throw std::runtime_error("not a schema: " + m_errors);
        }
    }

    /// Why the document is not valid; empty when it is.
    std::string FindErrors(const std::string& document) {
        m_errors.clear();
        const std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> parsed(
            xmlReadMemory(document.data(), static_cast<int>(document.size()), "document", nullptr, XML_PARSE_NONET),
            xmlFreeDoc);
        if (parsed == nullptr) {
            throw std::runtime_error("not an XML document");
        }
        const std::unique_ptr<xmlSchemaValidCtxt, void (*)(xmlSchemaValidCtxt*)> context(
            xmlSchemaNewValidCtxt(m_schema.get()), xmlSchemaFreeValidCtxt);
        xmlSchemaSetValidStructuredErrors(context.get(), TakeError, &m_errors);
        const bool isValid = xmlSchemaValidateDoc(context.get(), parsed.get()) == 0;
        if (isValid != m_errors.empty()) {
            throw std::runtime_error("verdict and errors differ: " + m_errors);
        }
        return m_errors;
    }

private:
    static void TakeError(void* errors, xmlError* error) { *static_cast<std::string*>(errors) += error->message; }

    std::string m_text;
    std::string m_errors;
    std::unique_ptr<xmlSchema, void (*)(xmlSchema*)> m_schema{nullptr, xmlSchemaFree};
};

}  // namespace test
