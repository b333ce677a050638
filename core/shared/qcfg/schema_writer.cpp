#include "qcfg/schema_writer.h"

#include <libxml/xmlwriter.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "qcfg/xml_names.h"
#include "qstd/exception.h"

namespace qcfg {

namespace {

/// Content of an element that holds neither a text nor children: blanks and comments only.
constexpr const char* c_nothing = "nothing";

struct BufferDeleter {
    void operator()(xmlBuffer* buffer) const noexcept { xmlBufferFree(buffer); }
};
struct WriterDeleter {
    void operator()(xmlTextWriter* writer) const noexcept { xmlFreeTextWriter(writer); }
};

const xmlChar* ToXml(const std::string& text) {
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

/// Indented XML into a string. Once a call has failed the document is lost, which Finish tells.
class XmlText {
public:
    XmlText() : m_buffer(xmlBufferCreate()), m_writer(xmlNewTextWriterMemory(m_buffer.get(), 0)) {
        if (m_buffer == nullptr || m_writer == nullptr) {
            throw qstd::Exception("Cannot write XML: out of memory");
        }
        xmlTextWriterSetIndent(m_writer.get(), 1);
        xmlTextWriterSetIndentString(m_writer.get(), ToXml("  "));
        Note(xmlTextWriterStartDocument(m_writer.get(), "1.0", "UTF-8", nullptr));
    }
    void Start(const std::string& name) { Note(xmlTextWriterStartElement(m_writer.get(), ToXml(name))); }
    void Attribute(const std::string& name, const std::string& value) {
        Note(xmlTextWriterWriteAttribute(m_writer.get(), ToXml(name), ToXml(value)));
    }
    void TextElement(const std::string& name, const std::string& text) {
        Note(xmlTextWriterWriteElement(m_writer.get(), ToXml(name), ToXml(text)));
    }
    void End() { Note(xmlTextWriterEndElement(m_writer.get())); }
    std::string Finish() {
        Note(xmlTextWriterEndDocument(m_writer.get()));
        xmlTextWriterFlush(m_writer.get());
        if (m_hasFailed) {
            throw qstd::Exception("Cannot write XML: out of memory");
        }
        return {reinterpret_cast<const char*>(xmlBufferContent(m_buffer.get())),
                static_cast<std::size_t>(xmlBufferLength(m_buffer.get()))};
    }

private:
    void Note(int result) { m_hasFailed = m_hasFailed || result < 0; }

    std::unique_ptr<xmlBuffer, BufferDeleter> m_buffer;
    std::unique_ptr<xmlTextWriter, WriterDeleter> m_writer;
    bool m_hasFailed = false;
};

bool IsSame(const SchemaForm& left, const SchemaForm& right) {
    return left.base == right.base && left.facets == right.facets;
}

class SchemaWriter {
public:
    std::string Write(const ElementRule& root) {
        m_xml.Start("xs:schema");
        m_xml.Attribute("xmlns:xs", c_schemaNamespace);
        m_xml.Attribute("elementFormDefault", "qualified");
        WriteElement(root, false);
        m_types.emplace(c_nothing, Forms{{"xs:token", {{"length", "0"}}}});
        for (const auto& [name, forms] : m_types) {
            WriteType(name, forms);
        }
        m_xml.End();
        return m_xml.Finish();
    }

private:
    using Forms = std::vector<SchemaForm>;

    /// The type's name; its definition follows the elements.
    std::string Use(const ValueType& type, Place_e place) {
        std::string name = type.GetSchemaName(place);
        const Forms forms = type.GetSchemaForms(place);
        const auto [known, isNew] = m_types.emplace(name, forms);
        if (!isNew && !std::equal(known->second.begin(), known->second.end(), forms.begin(), forms.end(), IsSame)) {
            throw qstd::Exception("Two value types of the schema are called \"" + name + "\"");
        }
        return name;
    }

    void WriteDoc(const std::string& doc) {
        m_xml.Start("xs:annotation");
        m_xml.TextElement("xs:documentation", doc);
        m_xml.End();
    }

    void WriteType(const std::string& name, const Forms& forms) {
        m_xml.Start("xs:simpleType");
        m_xml.Attribute("name", name);
        if (forms.size() == 1) {
            WriteForm(forms.front());
        } else {
            m_xml.Start("xs:union");
            for (const SchemaForm& form : forms) {
                m_xml.Start("xs:simpleType");
                WriteForm(form);
                m_xml.End();
            }
            m_xml.End();
        }
        m_xml.End();
    }

    void WriteForm(const SchemaForm& form) {
        m_xml.Start("xs:restriction");
        m_xml.Attribute("base", form.base);
        for (const auto& [facet, value] : form.facets) {
            m_xml.Start("xs:" + facet);
            m_xml.Attribute("value", value);
            m_xml.End();
        }
        m_xml.End();
    }

    /// The depth is that of the table.
    // NOLINTNEXTLINE(misc-no-recursion)
    void WriteElement(const ElementRule& given, bool mayBeLeftOut) {
        const ElementRule rule = WithAllVariants(given);
        m_xml.Start("xs:element");
        m_xml.Attribute("name", rule.name);
        if (mayBeLeftOut) {
            m_xml.Attribute("minOccurs", "0");
        }
        WriteDoc(rule.doc + (rule.defaultValue.empty() ? "" : " Default: " + rule.defaultValue + "."));
        m_xml.Start("xs:complexType");
        if (rule.children.IsEmpty()) {
            m_xml.Start("xs:simpleContent");
            m_xml.Start("xs:extension");
            m_xml.Attribute("base", rule.text == nullptr ? c_nothing : Use(*rule.text, Place_e::text));
            WriteAttributes(rule);
            m_xml.End();
            m_xml.End();
        } else {
            WriteChildren(rule);
            WriteAttributes(rule);
        }
        m_xml.End();
        m_xml.End();
    }

    /// Any order: where no child may repeat the schema can count them, otherwise it has to let each come at any time.
    // NOLINTNEXTLINE(misc-no-recursion)
    void WriteChildren(const ElementRule& rule) {
        const bool isCounted = std::none_of(rule.children.begin(), rule.children.end(), [](const ElementRule& child) {
            return child.occurrence == Occurrence_e::any;
        });
        m_xml.Start(isCounted ? "xs:all" : "xs:choice");
        if (!isCounted) {
            m_xml.Attribute("minOccurs", "0");
            m_xml.Attribute("maxOccurs", "unbounded");
        }
        for (const ElementRule& child : rule.children) {
            WriteElement(child, isCounted && child.occurrence != Occurrence_e::once);
        }
        m_xml.End();
    }

    void WriteAttributes(const ElementRule& rule) {
        for (const AttributeRule& attribute : rule.attributes) {
            m_xml.Start("xs:attribute");
            m_xml.Attribute("name", attribute.name);
            m_xml.Attribute("type", Use(*attribute.type, Place_e::attribute));
            if (attribute.isRequired) {
                m_xml.Attribute("use", "required");
            }
            if (!attribute.defaultValue.empty()) {
                m_xml.Attribute("default", attribute.defaultValue);
            }
            WriteDoc(attribute.doc);
            m_xml.End();
        }
    }

    XmlText m_xml;
    std::map<std::string, Forms> m_types;
};

}  // namespace

std::string WriteSchema(const ElementRule& root) {
    return SchemaWriter().Write(root);
}

}  // namespace qcfg
