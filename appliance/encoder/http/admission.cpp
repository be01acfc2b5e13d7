#include "appliance/encoder/http/admission.h"

#include "appliance/encoder/http/parameter_cgi.h"
#include "appliance/encoder/network/answering_faults.h"
#include "appliance/serving/media_path.h"

namespace {

using Verdict = Authenticator::Verdict;

// True when a fault has replaced the reply.
bool misbehaves(HttpSession& session, const FaultSet& faults) {
    Connection& connection = session.connection();
    connection.setByteDelay(std::chrono::milliseconds(faults.number(Fault::Slow)));
    if (faults.has(Fault::Delay))
        connection.sleepUntil(in(std::chrono::milliseconds(faults.number(Fault::Delay))));
    const std::optional<Fault> fault = answeringFault(faults);
    if (!fault)
        return false;
    session.beginStream(0);
    answerWithFault(*fault, session.device(), connection, "HTTP/1.1");
    return true;
}

Verdict verdictOn(const HttpSession& session, const FaultSet& faults) {
    const Request& request = session.request();
    if (faults.has(Fault::Unauthorised) ||
        (faults.has(Fault::ViewUnauthorised) && request.path() == viewParameterPath))
        return Verdict::Refused;
    // In a tunnel, RTSP asks for the credentials.
    if (isTunnelRequest(request))
        return Verdict::Accepted;
    // A SOAP message can have the credentials in it; onvif/onvif_page.cpp asks for them.
    if (session.device().options.onvif && request.path().starts_with("/onvif/"))
        return Verdict::Accepted;
    return session.device().authenticator.judge(request.header("Authorization").value_or(""), request.method,
                                                request.target);
}

} // namespace

bool isAdmitted(HttpSession& session, const FaultSet& faults) {
    if (misbehaves(session, faults))
        return false;
    if (faults.has(Fault::NotFound) ||
        (faults.has(Fault::ViewNotFound) && session.request().path() == viewParameterPath)) {
        session.reply({404, "text/plain", "not found\n", {}});
        return false;
    }
    const Verdict verdict = verdictOn(session, faults);
    if (verdict == Verdict::Accepted)
        return true;
    const std::string challenge = session.device().authenticator.challenge(verdict == Verdict::Stale);
    session.reply({401, "text/plain", "credentials needed\n", "WWW-Authenticate: " + challenge + "\r\n"});
    return false;
}
