#include "tests/appliance/camera_gateway.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace appliance {

CameraGateway::CameraGateway(Appliance& decoder, std::map<std::string, std::string> environment)
    : decoder_(decoder), environment_(std::move(environment)),
      logFile_(decoder.root() + "/var/log/gateway.log") {
    if (readFile(decoder.parameterFile()).empty())
        writeFile(decoder.parameterFile(), decoder.parameterText());
    decoder.keepParameterFile();
    start();
}

void CameraGateway::start() {
    const std::string output = decoder_.root() + "/var/log/gateway.out";
    writeFile(output, "");
    process_.reset();
    std::map<std::string, std::string> variables{{"APPLIANCE_ROOT", decoder_.root()},
                                                 {"LIBCOMMON_LOG", logFile_}};
    variables.insert(environment_.begin(), environment_.end());
    process_ = std::make_unique<Process>(
        std::vector<std::string>{Appliance::program("camera-gateway"), "--port", std::to_string(port_)},
        variables, output);
    const bool listens =
        eventually([&] { return readFile(output).starts_with("port=") && readFile(output).ends_with('\n'); });
    if (!listens)
        throw std::runtime_error("camera-gateway does not start: " + readFile(output) + log());
    port_ = std::atoi(readFile(output).c_str() + std::string("port=").size());
}

} // namespace appliance
