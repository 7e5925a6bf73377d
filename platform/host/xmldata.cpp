// Host XML reader: libxml2 with XPath over one process-wide document.
//
// The files read here (config.xml, acl_config.xml) may be edited by hand, so the reader is
// defensive: parsing never touches the network or expands entities, texts are gathered from the
// document's own text nodes only (an entity reference is skipped rather than expanded), and every
// copy into a caller's buffer is bounded.
#include "xmldata.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

#include "device_state.h"

namespace {

std::mutex gMutex;
xmlDocPtr gDoc = nullptr;

// libxml2 reports errors through callbacks that default to printing on stderr; a malformed
// hand-edited file is reported through our return codes instead.
void silentStructuredError(void*, xmlErrorPtr) {}

void ensureLibraryReady() {
    static std::once_flag once;
    std::call_once(once, [] { xmlInitParser(); });
}

void freeDocLocked() {
    if (gDoc != nullptr) {
        xmlFreeDoc(gDoc);
        gDoc = nullptr;
    }
}

// Appends the text of node and its descendants to out, stopping once out holds limit bytes.
// Depth is bounded by the parser (256 levels without XML_PARSE_HUGE).
void gatherText(xmlNodePtr node, std::string& out, size_t limit) {
    for (; node != nullptr && out.size() < limit; node = node->next) {
        switch (node->type) {
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
                if (node->content != nullptr) {
                    const char* text = reinterpret_cast<const char*>(node->content);
                    out.append(text, strnlen(text, limit - out.size()));
                }
                break;
            case XML_ELEMENT_NODE:
                gatherText(node->children, out, limit);
                break;
            default:
                break;  // comments, processing instructions, entity references
        }
    }
}

// Text of the node an XPath step selected (an element, an attribute or a text node).
void nodeText(xmlNodePtr node, std::string& out, size_t limit) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
        if (node->content != nullptr) {
            const char* text = reinterpret_cast<const char*>(node->content);
            out.append(text, strnlen(text, limit));
        }
        return;
    }
    if (node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE) {
        gatherText(node->children, out, limit);
    }
}

// Evaluates xpath against the open document. The caller holds gMutex and frees the result.
xmlXPathObjectPtr evaluateLocked(const char* xpath) {
    if (gDoc == nullptr || xpath == nullptr) {
        return nullptr;
    }
    xmlXPathContextPtr ctx = xmlXPathNewContext(gDoc);
    if (ctx == nullptr) {
        return nullptr;
    }
    ctx->error = silentStructuredError;
    xmlXPathObjectPtr result = xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(xpath), ctx);
    xmlXPathFreeContext(ctx);
    return result;
}

// Text of the first node matching xpath, at most limit bytes. false when nothing matches.
bool firstText(const char* xpath, std::string& out, size_t limit) {
    std::lock_guard<std::mutex> guard(gMutex);
    xmlXPathObjectPtr result = evaluateLocked(xpath);
    if (result == nullptr) {
        return false;
    }
    bool found = false;
    if (result->type == XPATH_NODESET && !xmlXPathNodeSetIsEmpty(result->nodesetval)) {
        nodeText(xmlXPathNodeSetItem(result->nodesetval, 0), out, limit);
        found = true;
    }
    xmlXPathFreeObject(result);
    return found;
}

bool isBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// The digits of a number with surrounding white space removed; false when empty.
bool trimmed(const std::string& text, size_t& begin, size_t& end) {
    begin = 0;
    end = text.size();
    while (begin < end && isBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(text[end - 1])) {
        --end;
    }
    return begin < end;
}

// Parses [begin, end) as decimal digits into at most max; false on any other character or overflow.
bool parseDigits(const std::string& text, size_t begin, size_t end, uint64_t max, uint64_t& value) {
    if (begin >= end) {
        return false;
    }
    value = 0;
    for (size_t i = begin; i < end; ++i) {
        char c = text[i];
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
        if (value > max) {
            return false;
        }
    }
    return true;
}

bool parseUint32(const std::string& text, uint32_t& out) {
    size_t begin = 0;
    size_t end = 0;
    uint64_t value = 0;
    if (!trimmed(text, begin, end) || !parseDigits(text, begin, end, UINT32_MAX, value)) {
        return false;
    }
    out = static_cast<uint32_t>(value);
    return true;
}

bool parseInt32(const std::string& text, int32_t& out) {
    size_t begin = 0;
    size_t end = 0;
    if (!trimmed(text, begin, end)) {
        return false;
    }
    bool negative = text[begin] == '-';
    if (negative || text[begin] == '+') {
        ++begin;
    }
    uint64_t max = negative ? static_cast<uint64_t>(INT32_MAX) + 1 : static_cast<uint64_t>(INT32_MAX);
    uint64_t value = 0;
    if (!parseDigits(text, begin, end, max, value)) {
        return false;
    }
    out = negative ? static_cast<int32_t>(-static_cast<int64_t>(value)) : static_cast<int32_t>(value);
    return true;
}

// Numbers are short; a longer text (white space padding included) is not taken for one.
constexpr size_t kNumberTextLimit = 4096;

}  // namespace

int xmldata_initialize(const char* path, const char* /*schemaPath: no validation on the host*/) {
    int rc = 0;
    if (ardo::deviceTakeFault("xmldata_initialize", &rc)) {
        return rc;
    }
    if (path == nullptr) {
        return 1;
    }
    ensureLibraryReady();
    std::lock_guard<std::mutex> guard(gMutex);
    freeDocLocked();
    xmlParserCtxtPtr parser = xmlNewParserCtxt();
    if (parser == nullptr) {
        return 1;
    }
    // No network, no entity substitution, no DTD loading: a hand-edited file cannot pull in
    // other files or blow up through nested entities.
    xmlSetStructuredErrorFunc(nullptr, silentStructuredError);
    gDoc = xmlCtxtReadFile(parser, path, nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    xmlFreeParserCtxt(parser);
    if (gDoc == nullptr || xmlDocGetRootElement(gDoc) == nullptr) {
        freeDocLocked();
        return 1;
    }
    return 0;
}

int xmldata_getstring(const char* xpath, char* buffer, unsigned int maxChars) {
    int rc = 0;
    if (ardo::deviceTakeFault("xmldata_getstring", &rc)) {
        return rc;
    }
    if (buffer == nullptr) {
        return 1;
    }
    std::string text;
    if (!firstText(xpath, text, maxChars)) {
        return 1;
    }
    size_t n = text.size() < maxChars ? text.size() : maxChars;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return 0;
}

int xmldata_getuint32(const char* xpath, uint32_t* value) {
    int rc = 0;
    if (ardo::deviceTakeFault("xmldata_getuint32", &rc)) {
        return rc;
    }
    if (value == nullptr) {
        return 1;
    }
    std::string text;
    uint32_t parsed = 0;
    if (!firstText(xpath, text, kNumberTextLimit + 1) || text.size() > kNumberTextLimit ||
        !parseUint32(text, parsed)) {
        return 1;
    }
    *value = parsed;
    return 0;
}

int xmldata_getint32_default(const char* xpath, int32_t* value, int32_t defaultValue) {
    if (value == nullptr) {
        return 1;
    }
    std::string text;
    int32_t parsed = 0;
    if (!firstText(xpath, text, kNumberTextLimit + 1) || text.size() > kNumberTextLimit ||
        !parseInt32(text, parsed)) {
        parsed = defaultValue;
    }
    *value = parsed;
    return 0;
}

int xmldata_getcount(const char* xpath, int* count) {
    int faulted = 0;
    if (ardo::deviceTakeFault("xmldata_getcount", &faulted)) {
        return faulted;
    }
    if (count == nullptr) {
        return 1;
    }
    std::lock_guard<std::mutex> guard(gMutex);
    if (gDoc == nullptr) {
        return 1;
    }
    xmlXPathObjectPtr result = evaluateLocked(xpath);
    if (result == nullptr) {
        return 1;
    }
    int rc = 0;
    if (result->type == XPATH_NODESET) {
        *count = result->nodesetval != nullptr ? result->nodesetval->nodeNr : 0;
    } else {
        rc = 1;  // a number or text expression, not a node selection
    }
    xmlXPathFreeObject(result);
    return rc;
}

int xmldata_close(void) {
    std::lock_guard<std::mutex> guard(gMutex);
    freeDocLocked();
    return 0;
}

int xmldata_shutdown(void) {
    // libxml2's global state is left alone (xmlCleanupParser): other parts of the process may
    // still use the library.
    return xmldata_close();
}
