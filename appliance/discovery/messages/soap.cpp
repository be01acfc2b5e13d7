#include "appliance/discovery/messages/soap.h"

namespace {

// The names of all codes in a fault: SOAP 1.2 nests subcodes, SOAP 1.1 has one.
bool hasCode(const XmlElement& fault, std::string_view wanted) {
    if (withoutPrefix(fault.textAt("faultcode")) == wanted) {
        return true;
    }
    for (const XmlElement* code = fault.child("Code"); code != nullptr; code = code->child("Subcode")) {
        if (withoutPrefix(code->textAt("Value")) == wanted) {
            return true;
        }
    }
    return false;
}

void readFault(const XmlElement& fault, SoapAnswer& answer) {
    answer.isFault = true;
    for (const char* name : {"NotAuthorized", "FailedAuthentication", "OperationProhibited"}) {
        answer.notAuthorized = answer.notAuthorized || hasCode(fault, name);
    }
    answer.reason = fault.textAt("Reason/Text");
    if (answer.reason.empty()) {
        answer.reason = fault.textAt("faultstring");
    }
}

} // namespace

std::string soapEnvelope(std::string_view header, std::string_view body) {
    std::string text = std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<s:Envelope xmlns:s=\"") +
                       soap::envelope12 + "\">";
    if (!header.empty()) {
        text.append("<s:Header>").append(header).append("</s:Header>");
    }
    return text.append("<s:Body>").append(body).append("</s:Body></s:Envelope>");
}

std::string_view withoutPrefix(std::string_view name) {
    return name.substr(std::min(name.find(':') + 1, name.size()));
}

SoapAnswer readSoapAnswer(std::string_view text) {
    SoapAnswer answer;
    XmlResult xml = readXml(text);
    if (!xml.root) {
        answer.mistake = xml.mistake;
        return answer;
    }
    const XmlElement& envelope = *xml.root;
    const bool known = envelope.nameSpace == soap::envelope12 || envelope.nameSpace == soap::envelope11;
    const XmlElement* const body = envelope.child("Body");
    if (!known || envelope.name != "Envelope" || body == nullptr) {
        answer.mistake = "it is XML, but not SOAP";
        return answer;
    }
    if (!body->children.empty()) {
        answer.content = body->children.front();
    }
    if (answer.content.name == "Fault") {
        readFault(answer.content, answer);
    }
    return answer;
}
