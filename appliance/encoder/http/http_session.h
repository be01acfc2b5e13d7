// One HTTP connection: reads requests one after the other, passes each to a handler, and writes the replies. It does
// not know the pages; server/routes.h does. Runs on the connection's own thread.
#pragma once

#include "appliance/encoder/device/device.h"
#include "appliance/encoder/network/connection.h"
#include "appliance/serving/request_text.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

enum class PortRole { Http, Https, Rtsp, Control };

struct Reply {
    int status = 200;
    std::string type = "text/plain";
    std::string body;
    std::string moreHeaders; // whole lines, each with its line end
};

class HttpSession {
public:
    // All must outlive it. `number` is the connection's number in the record of requests.
    HttpSession(Device& device, Connection& connection, std::uint64_t number, PortRole role);

    // Calls the handler for each request until the client leaves, a time limit has passed, or the device stops.
    // Requests that cannot be read are refused here.
    void run(const std::function<void(HttpSession&)>& handler);

    Device& device() const { return device_; }
    Connection& connection() const { return connection_; }
    const Request& request() const { return request_; }
    std::uint64_t number() const { return number_; }
    PortRole role() const { return role_; }

    // Replies and records the request. The connection stays open if client and server agree.
    void reply(const Reply& reply);
    // Replies, does not record the request, and ends the connection.
    void replyUnrecorded(const Reply& reply);
    // Records the request with `status` (0: it gets no reply) and ends the connection after the handler, which
    // writes the reply itself.
    void beginStream(int status);

    // Takes all bytes that were received: the request's head and what the client has sent after it.
    std::string takeAll() { return std::exchange(head_, {}) + std::exchange(pending_, {}); }

private:
    bool readRequest();
    bool readBody();
    void refuseRequest(int status, const std::string& reason);
    void write(const Reply& reply);
    void record(int status);

    Device& device_;
    Connection& connection_;
    const std::uint64_t number_;
    const PortRole role_;
    std::string head_;    // of the current request, exactly as received
    std::string pending_; // bytes after that request
    Request request_;
    std::int64_t requestTime_ = 0;
    bool goOn_ = true;
};
