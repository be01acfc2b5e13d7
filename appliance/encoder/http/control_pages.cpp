#include "appliance/encoder/http/control_pages.h"

namespace {

void serveFaults(HttpSession& session) {
    Device& device = session.device();
    if (session.request().method == "POST") {
        FaultSet wanted;
        if (const std::string mistake = wanted.add(session.request().body); !mistake.empty()) {
            session.replyUnrecorded({400, "text/plain", mistake + "\n", {}});
            return;
        }
        session.connection().spare(); // "refuse" breaks all connections, but this one still needs its reply
        device.faults.set(wanted);
    }
    session.replyUnrecorded({200, "text/plain", device.faults.current().text() + "\n", {}});
}

void serveRequests(HttpSession& session) {
    RequestLog& requests = session.device().requests;
    if (session.request().method == "DELETE")
        requests.clear();
    session.replyUnrecorded({200, "application/json", requests.json(), {}});
}

} // namespace

bool serveControlPage(HttpSession& session) {
    const std::string_view path = session.request().path();
    if (path != "/faults" && path != "/requests")
        return false;
    session.connection().setByteDelay(std::chrono::milliseconds(0));
    // A browser sends Origin: a page from elsewhere must not switch faults.
    if (!session.connection().peerIsLoopback() || session.request().header("Origin"))
        session.replyUnrecorded({403, "text/plain", "from the same machine only\n", {}});
    else if (path == "/faults")
        serveFaults(session);
    else
        serveRequests(session);
    return true;
}
