// Finds the cameras of the local network, and asks each of them what it is and which streams it has.
//
// Time and memory are bounded whatever the network answers: at most 500 devices, 64 profiles each, one megabyte an
// answer. Up to 32 devices are asked at the same time.
#pragma once

#include "appliance/discovery/camera.h"
#include "appliance/discovery/soap_client.h"

#include <string>
#include <vector>

struct DiscoveryOptions {
    double seconds = 10;     // for everything, 1 to 600
    std::string interface;   // "": all interfaces
    std::string address;     // HOST[:PORT] of a single camera that is asked without a search; "": search
    Credentials credentials; // for all cameras
};

struct Discovery {
    std::vector<Camera> cameras;
    std::vector<std::string> notes; // what else the user should know
};

// Throws std::runtime_error if there is no network to search, or the address is none.
Discovery discoverCameras(const DiscoveryOptions& options);
