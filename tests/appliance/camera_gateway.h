// A real camera-gateway that a test started for its appliance.
#pragma once

#include "tests/appliance/appliance.h"

#include <map>
#include <memory>
#include <string>

namespace appliance {

class CameraGateway {
public:
    // Writes the appliance's parameter file, if that has not happened yet, starts the gateway and waits until it listens.
    // A test starts it before the supervisor, as the units do.
    explicit CameraGateway(Appliance& decoder, std::map<std::string, std::string> environment = {});

    int port() const { return port_; }
    Process& process() { return *process_; }
    std::string log() const { return readFile(logFile_); }
    void start(); // again, after it has ended

private:
    Appliance& decoder_;
    const std::map<std::string, std::string> environment_; // further variables
    std::string logFile_;
    std::unique_ptr<Process> process_;
    int port_ = 0;
};

} // namespace appliance
