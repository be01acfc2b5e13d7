#include "appliance/encoder/onvif/onvif_page.h"

#include "appliance/discovery/messages/security.h"
#include "appliance/discovery/messages/soap.h"
#include "appliance/encoder/onvif/operations.h"

#include <cstdlib>
#include <ctime>

namespace {

constexpr std::int64_t longestTokenAge = 60; // seconds, by the encoder's clock
constexpr const char* soapType = "application/soap+xml; charset=utf-8";

std::int64_t clockOf(const FaultSet& faults) {
    return static_cast<std::int64_t>(std::time(nullptr)) + faults.number(Fault::Clock);
}

bool isGoodToken(const UserNameToken& token, const Options& options, std::int64_t now) {
    const std::int64_t age = now - secondsOfIsoTime(token.created);
    return token.user == options.user && !token.digest.empty() && std::abs(age) <= longestTokenAge &&
           token.digest == tokenDigest(bytesOfBase64(token.nonce), token.created, options.password);
}

bool mayUse(const HttpSession& session, const XmlElement& envelope, std::int64_t now) {
    const Device& device = session.device();
    if (!device.authenticator.asksForCredentials())
        return true;
    const XmlElement* const header = envelope.child("Header");
    if (header != nullptr && isGoodToken(readToken(*header), device.options, now))
        return true;
    const Request& request = session.request();
    return device.authenticator.judge(request.header("Authorization").value_or(""), request.method,
                                      request.target) == Authenticator::Verdict::Accepted;
}

void replySoap(HttpSession& session, int status, const std::string& content) {
    session.reply({status, soapType, soapEnvelope("", content), {}});
}

void refuseUser(HttpSession& session) {
    const Device& device = session.device();
    if (!device.options.digest)
        return replySoap(session, 400,
                         onvifFault("NotAuthorized", "The user name or password is missing or wrong"));
    session.reply({401, "text/plain", "credentials needed\n",
                   "WWW-Authenticate: " + device.authenticator.challenge(false) + "\r\n"});
}

// Entities that grow tenfold at each level; a reader must not expand them.
std::string entityBomb() {
    std::string text = "<?xml version=\"1.0\"?><!DOCTYPE s:Envelope [<!ENTITY e0 \"ten bytes.\">";
    for (int level = 1; level < 10; ++level) {
        text += "<!ENTITY e" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            text += "&e" + std::to_string(level - 1) + ";";
        text += "\">";
    }
    return text + "]><s:Envelope xmlns:s=\"" + soap::envelope12 + "\"><s:Body>&e9;</s:Body></s:Envelope>";
}

// True when a fault was the reply.
bool misanswers(HttpSession& session, const FaultSet& faults) {
    if (faults.has(Fault::SoapBomb))
        session.reply({200, soapType, entityBomb(), {}});
    else if (faults.has(Fault::SoapGarbage))
        session.reply({200, soapType, "<s:Envelope><s:Body><tds:GetServ\x1b[31m\xff", {}});
    else
        return false;
    return true;
}

void answer(HttpSession& session, const OnvifFacts& facts, const XmlElement& request, std::int64_t now) {
    const OnvifPlace place{session.connection().localAddress(), facts.port};
    const std::optional<std::string> content = answerOperation(request, {facts, place, now});
    if (!content)
        replySoap(session, 400, onvifFault("ActionNotSupported", request.name + " is not known"));
    else if (content->empty())
        replySoap(session, 400, onvifFault("NoProfile", "There is no such profile"));
    else
        replySoap(session, 200, *content);
}

} // namespace

bool isOnvifPath(std::string_view path) {
    return path == onvifDevicePath || path == onvifMediaPath || path == onvifMedia2Path;
}

void serveOnvif(HttpSession& session, const OnvifFacts& facts) {
    const FaultSet faults = session.device().faults.current();
    if (session.request().method != "POST")
        return session.reply({405, "text/plain", "SOAP requests are sent with POST\n", "Allow: POST\r\n"});
    if (misanswers(session, faults))
        return;
    const XmlResult xml = readXml(session.request().body);
    const XmlElement* const body = xml.root ? xml.root->child("Body") : nullptr;
    if (body == nullptr || body->children.empty())
        return replySoap(session, 400, onvifFault("WellFormed", "This is no SOAP request"));
    const XmlElement& request = body->children.front();
    const std::int64_t now = clockOf(faults);
    if (!isOpenOperation(request.name) && !mayUse(session, *xml.root, now))
        return refuseUser(session);
    answer(session, facts, request, now);
}
