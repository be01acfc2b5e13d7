// The requests that clients have made, kept in memory. Tests and users read them at /requests as JSON.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

struct RequestRecord {
    std::string protocol; // "http", "https" or "rtsp"
    std::string method;
    std::string target;           // exactly as sent
    std::string user;             // the user name that was sent, right or wrong; "" without credentials
    int status = 0;               // of the reply; 0: there was none
    std::int64_t time = 0;        // of the request, in milliseconds since 1970
    std::uint64_t connection = 0; // number of the TCP connection, from 1 up
};

// For RequestRecord::time.
std::int64_t millisecondsSince1970();

// Holds the newest 10000 requests. Any thread.
class RequestLog {
public:
    void add(RequestRecord record);
    void clear();
    // A JSON array, oldest first, one request per line.
    std::string json() const;

private:
    mutable std::mutex mutex_;
    std::deque<RequestRecord> records_;
};
