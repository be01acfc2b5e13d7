#include "appliance/discovery/messages/xml.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <memory>

namespace {

constexpr std::string_view blanks = " \t\r\n";

void trim(std::string& text) {
    const std::size_t end = text.find_last_not_of(blanks);
    text.erase(end == std::string::npos ? 0 : end + 1);
    text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
}

std::string textOf(const xmlChar* text) {
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

// Builds the tree from the parser's events.
class Builder {
public:
    void begin(xmlParserCtxtPtr parser) { parser_ = parser; }

    void refuse(const char* reason) {
        if (mistake_.empty()) {
            mistake_ = reason;
        }
        xmlStopParser(parser_);
    }

    void open(XmlElement element) {
        if (open_.size() >= maxXmlDepth) {
            return refuse("its elements are nested too deeply");
        }
        if (++count_ > maxXmlElements) {
            return refuse("it has too many elements");
        }
        open_.push_back(std::move(element));
    }

    void close() {
        if (open_.empty()) {
            return; // after a refusal
        }
        XmlElement done = std::move(open_.back());
        open_.pop_back();
        trim(done.text);
        if (open_.empty()) {
            root_ = std::move(done);
        } else {
            open_.back().children.push_back(std::move(done));
        }
    }

    void addText(const xmlChar* text, int length) {
        if (!open_.empty() && length > 0) {
            open_.back().text.append(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
        }
    }

    XmlResult result(bool wellFormed) {
        if (!mistake_.empty()) {
            return {std::nullopt, mistake_};
        }
        if (!wellFormed || !root_) {
            return {std::nullopt, "it is not XML"};
        }
        return {std::move(root_), {}};
    }

private:
    xmlParserCtxtPtr parser_ = nullptr;
    std::vector<XmlElement> open_; // from the root to the element that is being read
    std::optional<XmlElement> root_;
    std::size_t count_ = 0;
    std::string mistake_;
};

Builder& builderOf(void* context) {
    return *static_cast<Builder*>(context);
}

void onDocumentType(void* context, const xmlChar* /*name*/, const xmlChar* /*externalId*/,
                    const xmlChar* /*systemId*/) {
    builderOf(context).refuse("it has a document type, which is not allowed");
}

// libxml2 passes each attribute as five pointers: name, prefix, name space, begin and end of the value.
void onOpen(void* context, const xmlChar* name, const xmlChar* /*prefix*/, const xmlChar* uri,
            int /*nameSpaces*/, const xmlChar** /*nameSpacePairs*/, int attributes, int /*defaulted*/,
            const xmlChar** values) {
    XmlElement element;
    element.name = textOf(name);
    element.nameSpace = textOf(uri);
    for (int i = 0; i < attributes; ++i) {
        const xmlChar** const one = values + static_cast<std::ptrdiff_t>(i) * 5;
        element.attributes.emplace_back(textOf(one[0]), std::string(one[3], one[4]));
    }
    builderOf(context).open(std::move(element));
}

void onClose(void* context, const xmlChar* /*name*/, const xmlChar* /*prefix*/, const xmlChar* /*uri*/) {
    builderOf(context).close();
}

void onText(void* context, const xmlChar* text, int length) {
    builderOf(context).addText(text, length);
}

void dropMessage(void* /*context*/, xmlErrorPtr /*error*/) {}

xmlSAXHandler handlers() {
    xmlSAXHandler made{};
    made.initialized = XML_SAX2_MAGIC;
    made.internalSubset = onDocumentType;
    made.startElementNs = onOpen;
    made.endElementNs = onClose;
    made.characters = onText;
    made.ignorableWhitespace = onText;
    made.cdataBlock = onText;
    made.serror = dropMessage;
    return made;
}

// The length of a UTF-8 character by its first byte; 0 for a byte that begins none.
std::size_t lengthByFirst(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xc2 || first > 0xf4) {
        return 0;
    }
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

// The number of bytes of the UTF-8 character at the start of `text`; 0 if it is none that XML can carry.
std::size_t characterLength(std::string_view text) {
    const std::size_t length = lengthByFirst(static_cast<unsigned char>(text.front()));
    if (length == 0 || length > text.size()) {
        return 0;
    }
    std::uint32_t character =
        static_cast<unsigned char>(text.front()) & (length == 1 ? 0x7fU : 0xffU >> (length + 1));
    for (const char next : text.substr(1, length - 1)) {
        if ((next & 0xc0) != 0x80) {
            return 0;
        }
        character = character << 6U | (static_cast<unsigned char>(next) & 0x3fU);
    }
    constexpr std::array<std::uint32_t, 5> lowest{0, 0, 0x80, 0x800, 0x10000};
    return character >= lowest[length] && IS_CHAR(character) ? length : 0;
}

std::string_view replacement(char c) {
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&apos;";
    default:
        return {};
    }
}

} // namespace

const XmlElement* XmlElement::child(std::string_view childName) const {
    for (const XmlElement& one : children) {
        if (one.name == childName) {
            return &one;
        }
    }
    return nullptr;
}

const XmlElement* XmlElement::at(std::string_view path) const {
    const XmlElement* element = this;
    while (element != nullptr && !path.empty()) {
        const std::string_view step = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(step.size() + 1, path.size()));
        element = element->child(step);
    }
    return element;
}

std::string XmlElement::textAt(std::string_view path) const {
    const XmlElement* const element = at(path);
    return element == nullptr ? std::string() : element->text;
}

std::string XmlElement::attribute(std::string_view attributeName) const {
    for (const auto& [key, value] : attributes) {
        if (key == attributeName) {
            return value;
        }
    }
    return {};
}

const XmlElement* XmlElement::below(std::string_view descendantName) const {
    for (const XmlElement& one : children) {
        if (one.name == descendantName) {
            return &one;
        }
        if (const XmlElement* found = one.below(descendantName); found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

XmlResult readXml(std::string_view text) {
    static const bool initialized = [] {
        xmlInitParser();
        return true;
    }();
    if (!initialized || text.empty()) {
        return {std::nullopt, "it is empty"};
    }
    if (text.size() > maxXmlBytes) {
        return {std::nullopt, "it is too long"};
    }
    Builder builder;
    xmlSAXHandler sax = handlers();
    const std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> parser(
        xmlCreatePushParserCtxt(&sax, &builder, nullptr, 0, nullptr), &xmlFreeParserCtxt);
    if (!parser) {
        return {std::nullopt, "there is no memory to read it"};
    }
    xmlCtxtUseOptions(parser.get(), XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    builder.begin(parser.get());
    const int status = xmlParseChunk(parser.get(), text.data(), static_cast<int>(text.size()), 1);
    return builder.result((status == XML_ERR_OK || status == XML_NS_ERR_UNDEFINED_NAMESPACE) &&
                          parser->wellFormed != 0);
}

std::string xmlEscaped(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) {
            escaped += '?';
        } else if (const std::string_view name = replacement(text.front()); !name.empty()) {
            escaped += name;
        } else {
            escaped += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return escaped;
}
