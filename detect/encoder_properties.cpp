#include "detect/encoder_properties.h"

#include "detect/decimal.h"
#include "detect/detection_state.h"
#include "detect/parameter_query.h"
#include "detect/trace.h"
#include "detect/verdict.h"
#include "recorder/recorded.h"

#include <libcommon/network.h>
#include <libcommon/status.h>

#include <array>
#include <string>

namespace detect {
namespace {

constexpr int replyBytes = 1024;
using Reply = std::array<char, replyBytes>;

bool isErrorReport(const Reply& reply) {
    return reply.front() == '#';
}

// A model query that ended the probe, so that the other name of the parameter is not tried.
enum class ModelEnd { None, Success, Failure };

ModelEnd modelEnd(SourceEntry& entry, int statusId, int result) {
    if (recorded::isInterrupted()) {
        status(statusId, "Model", "Unknown");
        return ModelEnd::Failure;
    }
    if (result == -401) {
        if (state.apiVersion != 1) {
            recordError(entry, statusId, ERROR_UNAUTHORISED, "the model is not told to this user");
            return ModelEnd::Failure;
        }
        status(statusId, "Model", "Unknown");
        return ModelEnd::Success;
    }
    if (isTransportFailure(result)) {
        recordError(entry, statusId, ERROR_REQUEST_FAILED, "the model query got no answer");
        return ModelEnd::Failure;
    }
    return ModelEnd::None;
}

int limitedSourceNumber(int number, int inputs) {
    if (inputs == 1)
        return 1; // with a single input the quad view is that input
    return number > inputs ? inputs : number;
}

int apiVersionOf(int result, const char* reply) {
    if (result == -4011)
        return -4011;
    if (result == 1)
        return decimalInt(reply);
    return result == -404 ? 1 : 2;
}

} // namespace

int apiVersionProbe(const SourceEntry& entry) {
    const std::string path = "/vexo-cgi/view/param.cgi?action=list&group=Properties.API.HTTP.Version";
    std::string host;
    unsigned short port = 80;
    splitAddress(entry.address, host, port);
    std::array<char, replyBytes + 1> reply{}; // stays terminated
    char errorText[errorBufferSize] = "";
    TraceStep step("GET " + path + " (without credentials)");
    const int result = recorded::downloadHTTP(host, port, path, false, "", "", reply.data(), replyBytes,
                                              state.timeoutSeconds, errorText);
    step.answered(downloadResultText(result) + (result > 0 ? " " + quoted(reply.data()) : ""));
    return apiVersionOf(result, reply.data());
}

bool modelProbe(SourceEntry& entry, int statusId) {
    Reply reply{};
    for (const char* name :
         {"Brand.ProdFullName", "root.BRAND.PRODFULLNAME"}) { // older encoders know the second name
        reply.fill('\0');
        const int result = queryParameter(entry, name, reply);
        const ModelEnd end = modelEnd(entry, statusId, result);
        if (end != ModelEnd::None)
            return end == ModelEnd::Success;
        if (result >= 1 && !isErrorReport(reply)) {
            status(statusId, "Model", reply.data());
            return true;
        }
    }
    status(statusId, "Model", "Unknown");
    return true;
}

bool numberOfSourcesProbe(SourceEntry& entry, int statusId) {
    Reply reply{};
    const int result = queryParameter(entry, "ImageSource.NbrOfSources", reply);
    if (result != 0 && result != 1)
        return false;
    const int inputs = result == 1 ? decimalInt(reply.data()) : 0;
    if (inputs == 0) {
        status(statusId, "NumberOfVideoSources", "Unknown");
        return true;
    }
    status(statusId, "NumberOfVideoSources", inputs);
    const int limited = limitedSourceNumber(entry.sourceNumber, inputs);
    if (limited != entry.sourceNumber)
        traceDecision("source " + std::to_string(limited) + ": the encoder has no source " +
                      std::to_string(entry.sourceNumber));
    entry.sourceNumber = limited;
    return true;
}

bool rotationProbe(const SourceEntry& entry, int statusId) {
    Reply reply{};
    int result = queryParameter(entry, "Image.Rotation", reply);
    if (recorded::isInterrupted()) {
        status(statusId, "ImageRotation", 0);
        return false;
    }
    if (result < 0 || isErrorReport(reply)) {
        // Images count from 0. The quad view comes after the last input.
        const int image = entry.sourceNumber == 0 ? 4 : entry.sourceNumber - 1;
        result = queryParameter(entry, "Image.I" + std::to_string(image) + ".Appearance.Rotation", reply);
        if (result < 0 || isErrorReport(reply)) {
            status(statusId, "ImageRotation", 0);
            return false;
        }
    }
    // kept: a reply that does not begin with the name is published as a whole
    status(statusId, "ImageRotation", reply.data());
    return true;
}

} // namespace detect
