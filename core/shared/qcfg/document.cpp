#include "qcfg/document.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qcfg {

namespace {

/// The most bytes that are taken from a file: a hundred times a large chassis description, but a bound for a device.
constexpr std::size_t c_maxSize = std::size_t{64} * 1024 * 1024;

std::string TooLarge(const std::string& name) {
    return name + ": larger than " + std::to_string(c_maxSize) + " bytes";
}

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
struct ContextDeleter {
    void operator()(xmlParserCtxt* context) const noexcept { xmlFreeParserCtxt(context); }
};
struct DocumentDeleter {
    void operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
};

std::string Text(const xmlChar* text) {
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

std::string Name(const char* name) {
    return name == nullptr ? "(unnamed)" : name;
}

std::string TrimmedEnd(std::string text) {
    const auto last = text.find_last_not_of(" \t\r\n");
    text.erase(last == std::string::npos ? 0 : last + 1);
    return text;
}

/// What one reading has come to. The contexts of the parser lead to it: the document's, and those that the parser makes
/// for the contents of entities.
struct Reading {
    const xmlParserCtxt* document = nullptr;
    int errorLine = 0;
    std::string error;  ///< the first error; empty while there is none

    /// The line that has been reached in the document itself, whatever entity is being read.
    int Line() const noexcept {
        return document->inputNr > 0 && document->inputTab[0] != nullptr ? document->inputTab[0]->line : 1;
    }

    void Fail(const std::string& text) {
        if (error.empty()) {
            errorLine = Line();
            error = qstd::OneLine(text);
        }
    }
};

Reading* ReadingOf(const xmlParserCtxt* context) {
    return context == nullptr ? nullptr : static_cast<Reading*>(context->_private);
}

xmlParserInputPtr RefuseExternalEntity(const char* url, const char* /*id*/, xmlParserCtxtPtr context) {
    if (Reading* const reading = ReadingOf(context)) {
        reading->Fail("external entity is not loaded: " + Name(url));
    }
    return nullptr;
}

void InitParserOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlSetExternalEntityLoader(RefuseExternalEntity);
    });
}

void TakeError(void* context, xmlErrorPtr error) {
    Reading* const reading = ReadingOf(static_cast<xmlParserCtxt*>(context));
    if (reading != nullptr && error->level >= XML_ERR_ERROR) {
        reading->Fail(TrimmedEnd(error->message == nullptr ? "not an XML document" : error->message));
    }
}

/// Where the start tag that the parser has just read begins. The parser itself remembers where a tag ends, and counts
/// only to 65535 in its tree.
int LineOfStartTag(const xmlParserInput& input) {
    int line = input.line;
    // No "<" can stand inside a tag, not even in an attribute's value.
    for (const xmlChar* letter = input.cur; letter > input.base && *letter != '<';) {
        --letter;
        line -= *letter == '\n' ? 1 : 0;
    }
    return line;
}

void StartElement(void* parser, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri, int namespaceCount,
                  const xmlChar** namespaces, int attributeCount, int defaultedCount, const xmlChar** attributes) {
    auto* const context = static_cast<xmlParserCtxt*>(parser);
    xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, attributeCount, defaultedCount,
                          attributes);
    const Reading* const reading = ReadingOf(context);
    if (context->node != nullptr && reading != nullptr) {
        const bool isInDocument = context == reading->document && context->inputNr == 1;
        const std::intptr_t line = isInDocument ? LineOfStartTag(*context->input) : reading->Line();
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the node's free slot carries the number
        context->node->_private = reinterpret_cast<void*>(line);
    }
}

void ReadAttributes(const xmlNode& node, Element& element) {
    for (const xmlAttr* attribute = node.properties; attribute != nullptr; attribute = attribute->next) {
        xmlChar* const value = xmlNodeListGetString(node.doc, attribute->children, 1);
        element.AddAttr(std::make_shared<Attribute>(Text(attribute->name), Text(value)));
        xmlFree(value);
    }
}

/// An element that an entity stands for once more has no line of its own: it takes that of the element around it.
/// The depth of the tree is bounded by the parser.
// NOLINTNEXTLINE(misc-no-recursion)
std::shared_ptr<Element> ToElement(xmlNode& node, int outerLine) {
    const auto ownLine = static_cast<int>(reinterpret_cast<std::intptr_t>(node._private));
    const int line = ownLine > 0 ? ownLine : outerLine;
    auto element = std::make_shared<Element>(Text(node.name), std::string(), line);
    ReadAttributes(node, *element);
    for (xmlNode* child = node.children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            element->AddChild(ToElement(*child, line));
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
    if (text.size() > c_maxSize) {
        throw qstd::Exception(TooLarge(name));
    }
    const std::unique_ptr<xmlParserCtxt, ContextDeleter> context(xmlNewParserCtxt());
    if (context == nullptr) {
        throw qstd::Exception(name + ": out of memory");
    }
    Reading reading;
    reading.document = context.get();
    context->_private = &reading;
    context->sax->serror = TakeError;
    context->sax->startElementNs = StartElement;
    constexpr int c_options = XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
    const std::unique_ptr<xmlDoc, DocumentDeleter> document(
        xmlCtxtReadMemory(context.get(), text.data(), static_cast<int>(text.size()), name.c_str(), nullptr, c_options));
    xmlNode* const root = document == nullptr ? nullptr : xmlDocGetRootElement(document.get());
    std::shared_ptr<Element> tree;
    if (root != nullptr) {
        tree = ToElement(*root, 1);
    } else {
        reading.Fail("not an XML document");
    }
    if (!reading.error.empty()) {
        throw qstd::Exception(AtLine(name, reading.errorLine, reading.error));
    }
    return tree;
}

std::shared_ptr<Element> ReadXmlFile(const std::string& fileName) {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(fileName.c_str(), "rbe"));
    if (file == nullptr) {
        throw qstd::Exception(fileName + ": cannot read: " + std::strerror(errno));
    }
    std::string text;
    std::array<char, 16384> piece{};
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get())) {
        text.append(piece.data(), size);
        if (text.size() > c_maxSize) {
            throw qstd::Exception(TooLarge(fileName));
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw qstd::Exception(fileName + ": cannot read: " + std::strerror(errno));
    }
    return ReadXmlText(text, fileName);
}

}  // namespace qcfg
