// XML from the network, and text for our own XML.
//
// The reader takes nothing that costs more than the text itself: a document type, and with it every entity but the five
// of XML, is refused, and nothing is ever fetched. Size, depth and number of elements have limits.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// One element with its names without prefix.
struct XmlElement {
    std::string name;
    std::string nameSpace; // the URI; "" without one, or when the document does not declare its prefix
    std::string text;      // directly in it, without blanks at the ends
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<XmlElement> children;

    // The first child of that name, or null. Name spaces are ignored: devices get them wrong.
    const XmlElement* child(std::string_view childName) const;

    // Follows names that are separated by slashes: "Body/GetProfilesResponse". Null if one is missing.
    const XmlElement* at(std::string_view path) const;

    // The text at a path; "" if it does not exist.
    std::string textAt(std::string_view path) const;

    // The value of the first attribute of that name; "" if there is none.
    std::string attribute(std::string_view attributeName) const;

    // The first element of that name below this one, at any depth, or null.
    const XmlElement* below(std::string_view descendantName) const;
};

constexpr std::size_t maxXmlBytes = 1024UL * 1024;
constexpr std::size_t maxXmlDepth = 40;
constexpr std::size_t maxXmlElements = 20000;

struct XmlResult {
    std::optional<XmlElement> root; // nothing: it was refused
    std::string mistake;            // why
};

// Any thread, after the first call has returned once.
XmlResult readXml(std::string_view text);

// `text` as the content of an element or an attribute. Bytes that XML can't carry become '?'.
std::string xmlEscaped(std::string_view text);
