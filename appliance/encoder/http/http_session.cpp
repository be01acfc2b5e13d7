#include "appliance/encoder/http/http_session.h"

#include "appliance/encoder/base/log.h"
#include "appliance/serving/media_path.h"
#include "appliance/serving/status_reason.h"
#include "appliance/serving/text.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace {

constexpr std::chrono::seconds headTime(10);  // for a whole head, however slowly it arrives
constexpr std::chrono::seconds idleTime(30);  // between two requests
constexpr std::chrono::seconds replyTime(10); // for the client to take a reply
constexpr std::size_t maxBodyBytes = 64 * 1024;

} // namespace

HttpSession::HttpSession(Device& device, Connection& connection, std::uint64_t number, PortRole role)
    : device_(device), connection_(connection), number_(number), role_(role) {}

void HttpSession::run(const std::function<void(HttpSession&)>& handler) {
    while (goOn_ && !device_.stopping() && readRequest())
        handler(*this);
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
                refuseRequest(408, "the head took too long");
            return false;
        }
        if (!begun)
            deadline = in(headTime);
        begun = true;
        pending_.append(buffer.data(), static_cast<std::size_t>(count));
        // Empty lines before a request are ignored.
        pending_.erase(0, std::min(pending_.find_first_not_of("\r\n"), pending_.size()));
    }
    requestTime_ = millisecondsSince1970();
    head_ = pending_.substr(0, *length);
    pending_.erase(0, *length);
    std::optional<Request> request = *length > maxHeadBytes ? std::nullopt : parseHead(head_);
    request_ = request ? std::move(*request) : Request{};
    if (!request || request_.protocol != "HTTP") {
        refuseRequest(400, "not an HTTP request");
        return false;
    }
    const std::string_view wanted = request_.header("Connection").value_or("");
    goOn_ = request_.minorVersion >= 1 ? !equalIgnoringCase(wanted, "close")
                                       : equalIgnoringCase(wanted, "keep-alive");
    if (request_.method == "POST" && isTunnelRequest(request_)) {
        goOn_ = false; // its body is the tunnel and has no end
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
    write(reply);
}

void HttpSession::replyUnrecorded(const Reply& reply) {
    goOn_ = false;
    write(reply);
}

void HttpSession::write(const Reply& reply) {
    std::string bytes = "HTTP/1.1 " + std::to_string(reply.status) + " " + reasonOf(reply.status) + "\r\n" +
                        "Server: video-encoder\r\nContent-Type: " + reply.type +
                        "\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\n" +
                        reply.moreHeaders +
                        (goOn_ ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n");
    // Head and body in one write, so that no client waits for a delayed second packet.
    if (request_.method != "HEAD")
        bytes += reply.body;
    if (!connection_.write({bytes}, in(replyTime)))
        goOn_ = false;
}
