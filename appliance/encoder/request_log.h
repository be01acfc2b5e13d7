// What clients have asked of the encoder: kept in memory for tests and people, readable at /requests as JSON.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

struct RequestRecord {
    std::string protocol; // "http", "https" or "rtsp"
    std::string method;
    std::string target;           // as it was sent
    std::string user;             // as claimed; "" without credentials
    int status = 0;               // 0: never answered
    std::int64_t time = 0;        // milliseconds since 1970
    std::uint64_t connection = 0; // number of the TCP connection, from 1 on
};

// Safe on any thread. Holds the newest 10000 requests.
class RequestLog {
public:
    void add(RequestRecord record);
    void clear();
    // A JSON array, oldest first, one request a line.
    std::string json() const;

private:
    mutable std::mutex mutex_;
    std::deque<RequestRecord> records_;
};
