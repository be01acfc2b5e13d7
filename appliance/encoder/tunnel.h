// RTSP within two HTTP connections: the client's requests come base64-encoded in the body of a POST, the
// answers and the media go back in the endless reply to a GET. The two are brought together by a cookie.
#pragma once

#include "appliance/encoder/connection.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

// The way from the POST to the session that the GET runs.
class Tunnel {
public:
    // Encoded bytes, cut anywhere. False when they are not base64 or nobody takes them.
    bool push(std::string_view encoded);
    void close();

    // Decoded bytes, with the results of Connection::read().
    long read(char* buffer, std::size_t size, Deadline deadline);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string encoded_; // less than four characters
    std::string decoded_;
    bool closed_ = false;
};

// The tunnels that are open. Any thread.
class Tunnels {
public:
    // Null when the cookie is in use, or there are too many.
    std::shared_ptr<Tunnel> open(const std::string& cookie);
    std::shared_ptr<Tunnel> find(const std::string& cookie);
    void close(const std::string& cookie);

private:
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Tunnel>> tunnels_;
};
