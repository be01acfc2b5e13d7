// SOAP envelopes: ours are SOAP 1.2, answers may be 1.1 too.
#pragma once

#include "appliance/discovery/messages/xml.h"

#include <string>
#include <string_view>

// The name spaces that both sides of the conversation use.
namespace soap {
constexpr const char* envelope12 = "http://www.w3.org/2003/05/soap-envelope";
constexpr const char* envelope11 = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr const char* addressing = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
constexpr const char* discovery = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
constexpr const char* network = "http://www.onvif.org/ver10/network/wsdl";
constexpr const char* device = "http://www.onvif.org/ver10/device/wsdl";
constexpr const char* media = "http://www.onvif.org/ver10/media/wsdl";
constexpr const char* media2 = "http://www.onvif.org/ver20/media/wsdl";
constexpr const char* schema = "http://www.onvif.org/ver10/schema";
constexpr const char* error = "http://www.onvif.org/ver10/error";
} // namespace soap

// An envelope with this header and body, both XML. The prefix of SOAP is "s".
std::string soapEnvelope(std::string_view header, std::string_view body);

// The answer to a request, or what is wrong with it.
struct SoapAnswer {
    XmlElement content;  // the body's first element; without name if there is none
    std::string mistake; // "" if it is an envelope with a body; otherwise why it is none
    bool isFault = false;
    bool notAuthorized = false; // the fault says that user name and password are missing or wrong
    std::string reason;         // the fault's, for people
};

SoapAnswer readSoapAnswer(std::string_view text);

// The local name of a qualified name: "Device" in "tds:Device".
std::string_view withoutPrefix(std::string_view name);
