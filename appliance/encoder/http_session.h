// One HTTP connection of the encoder: reads requests, checks credentials, answers CGIs, and hands streams
// over to the files that make them. Runs on the connection's own thread.
#pragma once

#include "appliance/encoder/connection.h"
#include "appliance/encoder/device.h"
#include "appliance/encoder/http_message.h"

#include <cstdint>
#include <string>
#include <string_view>
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
    HttpSession(Device& device, Connection& connection, std::uint64_t number, PortRole role);

    // Until the client leaves, a time limit is over, or the device stops.
    void run();

    // For the stream makers.
    Device& device() const { return device_; }
    Connection& connection() const { return connection_; }
    const Request& request() const { return request_; }
    std::uint64_t number() const { return number_; }
    // The request's head as it came, and what the client has sent behind it.
    std::string takeAll() { return std::exchange(head_, {}) + std::exchange(pending_, {}); }
    // Answers and records the request; the connection stays open where client and server want it.
    void reply(const Reply& reply);
    // Records the request as answered with `status`; the answer is the caller's, and the connection ends
    // after it.
    void beginStream(int status);

private:
    bool readRequest();
    bool readBody();
    void handle();
    void handleControl();
    void handleFaults();
    bool misbehave(const FaultSet& faults);
    bool authorised(const FaultSet& faults);
    void route(const FaultSet& faults);
    void parameterCgi(const FaultSet& faults);
    void ptzCgi();
    void refuseRequest(int status, const std::string& reason);
    void record(int status);

    Device& device_;
    Connection& connection_;
    const std::uint64_t number_;
    const PortRole role_;
    std::string head_;    // of the request under way, as it came
    std::string pending_; // bytes after that request
    Request request_;
    std::int64_t requestTime_ = 0;
    bool goOn_ = true;
};

// The text of a status code, of HTTP or RTSP.
const char* reasonOf(int status);

std::int64_t millisecondsSince1970();
