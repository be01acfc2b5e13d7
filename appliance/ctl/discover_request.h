// The options of `decoderctl discover`.
#pragma once

#include <string>

struct DiscoverRequest {
    std::string address;        // of a single camera; "": search
    std::string interface;      // "": all
    std::string user;           // "": none
    bool passwordStdin = false; // read the password from standard input
    double timeout = 10;        // seconds, for everything
};
