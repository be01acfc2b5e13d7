#include "tests/appliance/camera_gateway.h"

#include <cstdlib>
#include <stdexcept>

namespace appliance {

CameraGateway::CameraGateway(Appliance& decoder)
    : decoder_(decoder), logFile_(decoder.root() + "/var/log/gateway.log") {
    if (readFile(decoder.parameterFile()).empty())
        writeFile(decoder.parameterFile(), decoder.parameterText());
    decoder.keepParameterFile();
    start();
}

void CameraGateway::start() {
    const std::string output = decoder_.root() + "/var/log/gateway.out";
    writeFile(output, "");
    process_.reset();
    process_ = std::make_unique<Process>(
        std::vector<std::string>{Appliance::program("camera-gateway"), "--port", std::to_string(port_)},
        std::map<std::string, std::string>{{"APPLIANCE_ROOT", decoder_.root()}, {"LIBCOMMON_LOG", logFile_}},
        output);
    const bool listens =
        eventually([&] { return readFile(output).starts_with("port=") && readFile(output).ends_with('\n'); });
    if (!listens)
        throw std::runtime_error("camera-gateway does not start: " + readFile(output) + log());
    port_ = std::atoi(readFile(output).c_str() + std::string("port=").size());
}

} // namespace appliance
