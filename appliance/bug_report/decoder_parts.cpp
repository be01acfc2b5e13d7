#include "appliance/bug_report/secret_hider.h"
#include "appliance/bug_report/sections.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/decoder_status.h"
#include "appliance/reporting/explanation.h"
#include "appliance/reporting/in_force.h"
#include "appliance/reporting/json_text.h"
#include "appliance/reporting/source_report.h"
#include "appliance/settings/parameter_check.h"

#include <libcommon/status.h>

#include <nlohmann/json.hpp>

namespace bug_report {
namespace {

std::string statusOfDecoder() {
    requireRunningAppliance();
    return jsonLines(statusJson(readDecoderStatus()));
}

std::string statusOfSources() {
    std::vector<SourceReport> sources = readSourceReports(readInForce());
    addWarmReports(sources);
    return jsonLines(sourcesJson(sources, readDecoderStatus().currentSource));
}

// How each source was detected: the ladder that `explain` shows.
std::string detections() {
    std::string text;
    for (const SourceReport& source : readSourceReports(readInForce())) {
        const std::vector<TraceLine> trace = readTrace(status(source.index, "DetectionTrace"));
        text += "== source " + std::to_string(source.index) + ' ' + source.name + '\n';
        text += trace.empty() ? "not detected\n" : explanationText(trace);
    }
    return text;
}

std::string configuration() {
    return SecretHider::withoutPasswords(readParameterText(configurationFile()));
}

std::string mistakes() {
    const std::string file = configurationFile();
    return findingsText(file, findMistakes(readParameterText(file)));
}

} // namespace

std::vector<Part> decoderParts() {
    return {partOf("status.json", statusOfDecoder), partOf("sources.json", statusOfSources),
            partOf("detections.txt", detections), partOf("configuration.txt", configuration),
            partOf("mistakes.txt", mistakes)};
}

} // namespace bug_report
