// One HTTP or HTTPS request, by libcurl, waiting only in our own wait.
//
// libcurl never waits and never starts a thread here: its multi interface is driven by socket actions, names
// are resolved before (resolver.h). Connections stay open between requests and are used again; a few seconds
// after the last request they are shut down, even when no further request ever comes. A forked child starts
// without connections: those of its parent are neither used nor closed.
//
// One thread at a time. download.cpp decides which requests to make and what their results mean.
#pragma once

#include "libcommon/src/network_wait.h"

#include <string>

namespace network {

struct HttpRequest {
    bool tls = false;
    std::string host;
    unsigned short port = 0;
    std::string target;           // path and query, sent unchanged
    bool withCredentials = false; // answer a 401 with user and password
    std::string user;
    std::string password;
    char* buffer = nullptr; // null: the body is dropped
    int size = 0;
    std::int64_t connectUntil = 0; // a time of gettimeusec(): the limit for the TCP connect
};

struct HttpOutcome {
    int transport = 0;              // 0, or why no complete answer came: a CURLcode, 1 to 99
    int status = 0;                 // of the last response's status line; 0: no HTTP response came
    int bytes = 0;                  // placed in the buffer
    bool connected = false;         // a TCP connection was made, or one was there already
    bool connectTimeOver = false;   // not connected by `connectUntil`
    bool answeredChallenge = false; // the answer came for a request with credentials
    int systemError = 0;            // errno of the failed connect; 0 when unknown
    std::string reason;             // why, as readable text; never with credentials
};

HttpOutcome runRequest(const HttpRequest& request, NetworkOperation& operation);

} // namespace network
