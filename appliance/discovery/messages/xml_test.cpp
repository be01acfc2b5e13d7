#include "appliance/discovery/messages/xml.h"

#include <gtest/gtest.h>

namespace {

TEST(Xml, IsReadWithoutPrefixes) {
    const XmlResult result =
        readXml("<?xml version=\"1.0\"?><a:x xmlns:a=\"urn:one\"><a:y k=\"v\"> text </a:y></a:x>");
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->name, "x");
    EXPECT_EQ(result.root->nameSpace, "urn:one");
    EXPECT_EQ(result.root->textAt("y"), "text");
    EXPECT_EQ(result.root->child("y")->attribute("k"), "v");
    EXPECT_EQ(result.root->textAt("y/z"), "");
    EXPECT_EQ(result.root->attribute("none"), "");
}

TEST(Xml, PrefixThatIsNotDeclaredIsTolerated) {
    const XmlResult result = readXml("<x><tt:y>1</tt:y></x>");
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->textAt("y"), "1");
}

TEST(Xml, FiveEntitiesAndCharacterNumbersAreRead) {
    const XmlResult result = readXml("<x k=\"&lt;&#65;\">&amp;&lt;&gt;&quot;&apos;&#x41;<![CDATA[<b>]]></x>");
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->text, "&<>\"'A<b>");
    EXPECT_EQ(result.root->attribute("k"), "<A");
}

TEST(Xml, DocumentTypeIsRefused) {
    const XmlResult result = readXml("<!DOCTYPE x [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]><x>&b;</x>");
    EXPECT_FALSE(result.root);
    EXPECT_EQ(result.mistake, "it has a document type, which is not allowed");
    EXPECT_FALSE(readXml("<!DOCTYPE x SYSTEM \"file:/etc/passwd\"><x/>").root);
}

TEST(Xml, UnknownEntityIsRefused) {
    EXPECT_FALSE(readXml("<x>&unknown;</x>").root);
}

TEST(Xml, OtherTextIsRefused) {
    EXPECT_EQ(readXml("").mistake, "it is empty");
    EXPECT_EQ(readXml("hello").mistake, "it is not XML");
    EXPECT_EQ(readXml("<a><b></a>").mistake, "it is not XML");
    EXPECT_EQ(readXml("<a>").mistake, "it is not XML");
    EXPECT_EQ(readXml("<a/><b/>").mistake, "it is not XML");
    EXPECT_EQ(readXml(std::string("<a>\0</a>", 8)).mistake, "it is not XML");
    EXPECT_EQ(readXml("<a>\xff\xfe</a>").mistake, "it is not XML");
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST(Xml, DepthHasALimit) {
    EXPECT_TRUE(readXml(repeated("<a>", maxXmlDepth) + repeated("</a>", maxXmlDepth)).root);
    const XmlResult result = readXml(repeated("<a>", 5000) + repeated("</a>", 5000));
    EXPECT_EQ(result.mistake, "its elements are nested too deeply");
}

TEST(Xml, NumberOfElementsHasALimit) {
    EXPECT_TRUE(readXml("<a>" + repeated("<b/>", maxXmlElements - 1) + "</a>").root);
    EXPECT_EQ(readXml("<a>" + repeated("<b/>", maxXmlElements) + "</a>").mistake, "it has too many elements");
}

TEST(Xml, LengthHasALimit) {
    EXPECT_EQ(readXml("<a>" + std::string(maxXmlBytes, 'x') + "</a>").mistake, "it is too long");
}

TEST(Xml, ElementIsFoundAtAnyDepth) {
    const XmlResult result = readXml("<a><b><c>1</c></b><d/></a>");
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->below("c")->text, "1");
    EXPECT_EQ(result.root->below("e"), nullptr);
}

TEST(Xml, EscapedTextReadsBack) {
    const std::string text = "a<b>&\"'\t\xc3\xa9";
    const XmlResult result = readXml("<x k=\"" + xmlEscaped(text) + "\">" + xmlEscaped(text) + "</x>");
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->text, text);
}

TEST(Xml, BytesThatXmlCannotCarryAreReplaced) {
    EXPECT_EQ(xmlEscaped(std::string("a\x01\0b", 4)), "a??b");
    EXPECT_EQ(xmlEscaped("a\xff\xc3"), "a??");
    EXPECT_EQ(xmlEscaped("\xef\xbf\xbf"), "???"); // U+FFFF
}

} // namespace
