#include "qcfg/document.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <vector>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qcfg {

namespace {

struct ContextDeleter {
    void operator()(xmlParserCtxt* context) const noexcept { xmlFreeParserCtxt(context); }
};
struct DocumentDeleter {
    void operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
};

/// The external entity that the document being read on this thread asked for; empty when it asked for none.
thread_local std::string t_refusedEntity;

xmlParserInputPtr RefuseExternalEntity(const char* url, const char* /*id*/, xmlParserCtxtPtr /*context*/) {
    t_refusedEntity = url == nullptr ? "(unnamed)" : url;
    return nullptr;
}

void InitParserOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlSetExternalEntityLoader(RefuseExternalEntity);
    });
}

std::string Text(const xmlChar* text) {
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

std::string TrimmedEnd(std::string text) {
    const auto last = text.find_last_not_of(" \t\r\n");
    text.erase(last == std::string::npos ? 0 : last + 1);
    return text;
}

void ReadAttributes(const xmlNode& node, Element& element) {
    for (const xmlAttr* attribute = node.properties; attribute != nullptr; attribute = attribute->next) {
        xmlChar* const value = xmlNodeListGetString(node.doc, attribute->children, 1);
        element.AddAttr(std::make_shared<Attribute>(Text(attribute->name), Text(value)));
        xmlFree(value);
    }
}

/// The depth of the tree is bounded by the parser.
// NOLINTNEXTLINE(misc-no-recursion)
std::shared_ptr<Element> ToElement(xmlNode& node) {
    auto element = std::make_shared<Element>(Text(node.name), std::string(), static_cast<int>(xmlGetLineNo(&node)));
    ReadAttributes(node, *element);
    for (xmlNode* child = node.children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            element->AddChild(ToElement(*child));
        } else if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            element->AppendText(Text(child->content));
        }
    }
    return element;
}

}  // namespace

std::string AtLine(const std::string& fileName, int line, const std::string& text) {
    return fileName + ":" + std::to_string(line) + ": " + text;
}

std::shared_ptr<Element> ReadXmlText(const std::string& text, const std::string& name) {
    InitParserOnce();
    t_refusedEntity.clear();
    const std::unique_ptr<xmlParserCtxt, ContextDeleter> context(xmlNewParserCtxt());
    if (context == nullptr) {
        throw qstd::Exception(name + ": out of memory");
    }
    constexpr int c_options = XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_BIG_LINES | XML_PARSE_NOERROR |
                              XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
    const std::unique_ptr<xmlDoc, DocumentDeleter> document(
        xmlCtxtReadMemory(context.get(), text.data(), static_cast<int>(text.size()), name.c_str(), nullptr, c_options));
    if (!t_refusedEntity.empty()) {
        throw qstd::Exception(AtLine(name, context->lastError.line > 0 ? context->lastError.line : 1,
                                     "external entity is not loaded: " + qstd::OneLine(t_refusedEntity)));
    }
    xmlNode* const root = document == nullptr ? nullptr : xmlDocGetRootElement(document.get());
    if (root == nullptr) {
        const xmlError& error = context->lastError;
        const std::string reason = error.message == nullptr ? "not an XML document" : error.message;
        throw qstd::Exception(AtLine(name, error.line > 0 ? error.line : 1, qstd::OneLine(TrimmedEnd(reason))));
    }
    return ToElement(*root);
}

std::shared_ptr<Element> ReadXmlFile(const std::string& fileName) {
    errno = 0;
    std::ifstream file(fileName, std::ios::binary);
    std::ostringstream text;
    if (file) {
        text << file.rdbuf();
    }
    // A folder opens but cannot be read; an empty file sets failbit without an error of the system.
    if (!file || (!text && errno != 0)) {
        throw qstd::Exception(fileName + ": cannot read: " + std::strerror(errno));
    }
    return ReadXmlText(text.str(), fileName);
}

}  // namespace qcfg
