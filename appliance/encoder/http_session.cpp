#include "appliance/encoder/http_session.h"

#include "appliance/encoder/http_faults.h"
#include "appliance/encoder/log.h"
#include "appliance/encoder/rtsp_http.h"
#include "appliance/encoder/streams.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace {

constexpr std::chrono::seconds headTime(10);  // for a whole head, however slowly it drips
constexpr std::chrono::seconds idleTime(30);  // between two requests
constexpr std::chrono::seconds replyTime(10); // for a client to take a reply
constexpr std::size_t maxBodyBytes = 64 * 1024;
constexpr std::string_view presetField = "gotoserverpresetname=";

// A page to look at with a browser.
std::string frontPage(const Options& options) {
    std::string page = "<!DOCTYPE html><title>video-encoder</title><body style=\"background:#222\">\n";
    for (std::size_t i = 1; i <= options.inputs.size(); ++i)
        page +=
            "<img src=\"/vexo-cgi/mjpg/video.cgi?camera=" + std::to_string(i) + "&resolution=352x288\">\n";
    return page;
}

} // namespace

std::int64_t millisecondsSince1970() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

const char* reasonOf(int status) {
    constexpr std::array<std::pair<int, const char*>, 16> reasons{{{200, "OK"},
                                                                   {400, "Bad Request"},
                                                                   {401, "Unauthorized"},
                                                                   {403, "Forbidden"},
                                                                   {404, "Not Found"},
                                                                   {405, "Method Not Allowed"},
                                                                   {408, "Request Timeout"},
                                                                   {413, "Content Too Large"},
                                                                   {431, "Request Header Fields Too Large"},
                                                                   {454, "Session Not Found"},
                                                                   {455, "Method Not Valid in This State"},
                                                                   {459, "Aggregate Operation Not Allowed"},
                                                                   {461, "Unsupported Transport"},
                                                                   {501, "Not Implemented"},
                                                                   {503, "Service Unavailable"},
                                                                   {505, "Version Not Supported"}}};
    const auto* const found =
        std::find_if(reasons.begin(), reasons.end(), [&](const auto& row) { return row.first == status; });
    return found == reasons.end() ? "Unknown" : found->second;
}

HttpSession::HttpSession(Device& device, Connection& connection, std::uint64_t number, PortRole role)
    : device_(device), connection_(connection), number_(number), role_(role) {}

void HttpSession::run() {
    while (goOn_ && !device_.stopping() && readRequest())
        handle();
}

bool HttpSession::readRequest() {
    request_ = {};
    Deadline deadline = in(pending_.empty() ? std::chrono::seconds(idleTime) : headTime);
    bool begun = !pending_.empty();
    std::array<char, 4096> buffer{};
    std::optional<std::size_t> length;
    while (!(length = headLength(pending_))) {
        if (pending_.size() > maxHeadBytes) {
            refuseRequest(431, "the head is too long");
            return false;
        }
        const long count = connection_.read(buffer.data(), buffer.size(), deadline);
        if (count <= 0) {
            if (begun && count == Connection::timedOut)
                refuseRequest(408, "the head did not come in time");
            return false;
        }
        if (!begun)
            deadline = in(headTime);
        begun = true;
        pending_.append(buffer.data(), static_cast<std::size_t>(count));
        // Empty lines before a request are to be passed over.
        pending_.erase(0, std::min(pending_.find_first_not_of("\r\n"), pending_.size()));
    }
    requestTime_ = millisecondsSince1970();
    head_ = pending_.substr(0, *length);
    pending_.erase(0, *length);
    std::optional<Request> request = *length > maxHeadBytes ? std::nullopt : parseHead(head_);
    request_ = request ? std::move(*request) : Request{};
    if (!request || request_.protocol != "HTTP") {
        refuseRequest(400, "this is no HTTP request");
        return false;
    }
    const std::string_view wanted = request_.header("Connection").value_or("");
    goOn_ = request_.minorVersion >= 1 ? !equalIgnoringCase(wanted, "close")
                                       : equalIgnoringCase(wanted, "keep-alive");
    if (request_.method == "POST" && isTunnelRequest(request_)) {
        goOn_ = false; // its body has no end
        return true;
    }
    return readBody();
}

bool HttpSession::readBody() {
    if (request_.header("Transfer-Encoding")) {
        refuseRequest(501, "bodies need a Content-Length");
        return false;
    }
    const std::string_view text = request_.header("Content-Length").value_or("0");
    const std::optional<int> size = wholeNumber(text);
    if (!size || *size > static_cast<int>(maxBodyBytes)) {
        refuseRequest(size ? 413 : 400, size ? "the body is too long" : "bad Content-Length");
        return false;
    }
    const auto wanted = static_cast<std::size_t>(*size);
    const Deadline deadline = in(headTime);
    if (wanted > pending_.size() && equalIgnoringCase(request_.header("Expect").value_or(""), "100-continue"))
        connection_.write({"HTTP/1.1 100 Continue\r\n\r\n"}, deadline);
    std::array<char, 4096> buffer{};
    while (pending_.size() < wanted) {
        const long count = connection_.read(buffer.data(), buffer.size(), deadline);
        if (count <= 0)
            return false;
        pending_.append(buffer.data(), static_cast<std::size_t>(count));
    }
    request_.body = pending_.substr(0, wanted);
    pending_.erase(0, wanted);
    return true;
}

void HttpSession::refuseRequest(int status, const std::string& reason) {
    goOn_ = false;
    if (requestTime_ == 0)
        requestTime_ = millisecondsSince1970();
    reply({status, "text/plain", reason + "\n", {}});
}

void HttpSession::record(int status) {
    const std::string_view credentials = request_.header("Authorization").value_or("");
    if (device_.options.verbosity > 0)
        logLine(connection_.peerAddress() + " " + request_.method + " " + request_.target + " " +
                std::to_string(status));
    device_.requests.add({role_ == PortRole::Https ? "https" : "http", request_.method, request_.target,
                          Authenticator::claimedUser(credentials), status, requestTime_, number_});
}

void HttpSession::beginStream(int status) {
    goOn_ = false;
    record(status);
}

void HttpSession::reply(const Reply& reply) {
    record(reply.status);
    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " + reasonOf(reply.status) + "\r\n" +
                       "Server: video-encoder\r\nContent-Type: " + reply.type +
                       "\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\n" +
                       reply.moreHeaders +
                       (goOn_ ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n");
    const std::string_view body =
        request_.method == "HEAD" ? std::string_view{} : std::string_view(reply.body);
    // In one piece: a client must never see a head whose body is a delayed packet away.
    head += body;
    if (!connection_.write({head}, in(replyTime)))
        goOn_ = false;
}

void HttpSession::handle() {
    const std::string_view path = request_.path();
    if (path == "/faults" || path == "/requests") {
        handleControl();
        return;
    }
    if (role_ == PortRole::Control) {
        reply({404, "text/plain", "only /faults and /requests are here\n", {}});
        return;
    }
    const FaultSet faults = device_.faults.current();
    connection_.setByteDelay(std::chrono::milliseconds(faults.number(Fault::Slow)));
    if (misbehave(faults) || !authorised(faults))
        return;
    if (request_.method != "GET" && request_.method != "HEAD" && request_.method != "POST") {
        reply({405, "text/plain", "GET, HEAD and POST are known\n", "Allow: GET, HEAD, POST\r\n"});
        return;
    }
    route(faults);
}

// From this machine only, and not from a page that some browser has open.
void HttpSession::handleControl() {
    connection_.setByteDelay(std::chrono::milliseconds(0));
    const auto answer = [this](int status, const std::string& type, const std::string& body) {
        const std::string head =
            "HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) + "\r\nContent-Type: " + type +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
        connection_.write({head, body}, in(replyTime));
    };
    goOn_ = false;
    if (!connection_.peerIsLoopback() || request_.header("Origin")) {
        answer(403, "text/plain", "from the same machine only\n");
        return;
    }
    if (request_.path() == "/requests") {
        if (request_.method == "DELETE")
            device_.requests.clear();
        answer(200, "application/json", device_.requests.json());
        return;
    }
    if (request_.method == "POST") {
        FaultSet wanted;
        if (const std::string mistake = wanted.add(request_.body); !mistake.empty()) {
            answer(400, "text/plain", mistake + "\n");
            return;
        }
        connection_.spare(); // the switch may cut every other connection; this one still owes an answer
        device_.faults.set(wanted);
    }
    answer(200, "text/plain", device_.faults.current().text() + "\n");
}

// True when a fault has answered, or never will.
bool HttpSession::misbehave(const FaultSet& faults) {
    if (faults.has(Fault::Delay)) {
        const Deadline end = in(std::chrono::milliseconds(faults.number(Fault::Delay)));
        connection_.sleepUntil(end);
    }
    const std::optional<Fault> fault = answeringFault(faults);
    if (!fault)
        return false;
    goOn_ = false;
    record(0);
    answerWithFault(*fault, device_, connection_, "HTTP/1.1");
    return true;
}

bool HttpSession::authorised(const FaultSet& faults) {
    using Verdict = Authenticator::Verdict;
    const bool view = request_.path() == viewParameterPath;
    if (faults.has(Fault::NotFound) || (view && faults.has(Fault::ViewNotFound))) {
        reply({404, "text/plain", "not found\n", {}});
        return false;
    }
    Verdict verdict = Verdict::Accepted;
    if (!isTunnelRequest(request_))
        verdict = device_.authenticator.judge(request_.header("Authorization").value_or(""), request_.method,
                                              request_.target);
    if (faults.has(Fault::Unauthorised) || (view && faults.has(Fault::ViewUnauthorised)))
        verdict = Verdict::Refused;
    if (verdict == Verdict::Accepted)
        return true;
    reply({401, "text/plain", "credentials, please\n",
           "WWW-Authenticate: " + device_.authenticator.challenge(verdict == Verdict::Stale) + "\r\n"});
    return false;
}

void HttpSession::route(const FaultSet& faults) {
    const std::string_view path = request_.path();
    if (path == viewParameterPath || path == adminParameterPath || path == adminGetParameterPath)
        parameterCgi(faults);
    else if (path == "/vexo-cgi/com/ptz.cgi")
        ptzCgi();
    else if (path == "/")
        reply({200, "text/html", frontPage(device_.options), {}});
    else if (!serveStream(*this))
        reply({404, "text/plain", "not found\n", {}});
}

void HttpSession::parameterCgi(const FaultSet& faults) {
    const std::string_view path = request_.path();
    ParameterReply answer{};
    if (path == adminGetParameterPath) {
        answer = device_.parameters.ask(ParameterCgi::AdminGet, percentDecoded(request_.query()));
    } else if (path == viewParameterPath && faults.has(Fault::ViewHash)) {
        answer = {200, "# error: ask the administrator's CGI\n"};
    } else {
        const auto action = queryField(request_.query(), "action");
        if (action && *action != "list") {
            reply({400, "text/plain", "# only action=list is known\n", {}});
            return;
        }
        answer = device_.parameters.ask(path == viewParameterPath ? ParameterCgi::View : ParameterCgi::Admin,
                                        queryField(request_.query(), "group").value_or(""));
    }
    reply({answer.status, "text/plain", answer.text, {}});
}

// The name is everything to the end of the target: clients send it as it is, blanks and ampersands and all.
void HttpSession::ptzCgi() {
    const std::string_view query = request_.query();
    const std::size_t at = query.find(presetField);
    if (at == std::string_view::npos) {
        reply({400, "text/plain", "only gotoserverpresetname is known\n", {}});
        return;
    }
    std::string preset(query.substr(at + presetField.size()));
    std::replace_if(
        preset.begin(), preset.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    device_.announce("ptz gotoserverpresetname=" + preset);
    reply({200, "text/plain", "OK\n", {}});
}
