// decoderctl: the control command of the decoder.
#include "appliance/ctl/actions.h"
#include "appliance/ctl/command_line.h"
#include "appliance/ctl/decoder_status.h"
#include "appliance/ctl/explanation.h"
#include "appliance/ctl/refused.h"
#include "appliance/ctl/snapshot.h"
#include "appliance/ctl/source_names.h"
#include "appliance/ctl/source_report.h"
#include "appliance/ctl/watch.h"

#include <libcommon/status.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>

namespace {

constexpr int jsonIndent = 2;

// Answers of commands that do something: a sentence, or {"done": sentence}.
void answer(const Request& request, const std::string& sentence) {
    if (request.json) {
        std::cout << nlohmann::json{{"done", sentence}}.dump() << '\n';
    } else if (!sentence.empty()) {
        std::cout << sentence << '\n';
    }
}

void show(const Request& request, const std::string& text, const nlohmann::json& json) {
    std::cout << (request.json ? json.dump(jsonIndent) + '\n' : text);
}

void showStatus(const Request& request) {
    requireRunningAppliance();
    const DecoderStatus status = readDecoderStatus();
    show(request, statusText(status), statusJson(status));
}

void showSources(const Request& request) {
    const std::vector<SourceReport> sources = readSourceReports();
    const int current = readDecoderStatus().currentSource;
    show(request, sourcesText(sources, current), sourcesJson(sources, current));
}

// The source that was meant on the command line.
SourceReport meantSource(const Request& request) {
    std::vector<SourceReport> sources = readSourceReports();
    return std::move(sources[resolveSource(request.source, sourceNames(sources))]);
}

void showSource(const Request& request) {
    const SourceReport source = meantSource(request);
    show(request, sourceText(source), sourceJson(source));
}

void explainSource(const Request& request) {
    const SourceReport source = meantSource(request);
    const std::vector<TraceLine> trace = readTrace(status(source.index, "DetectionTrace"));
    if (trace.empty()) {
        throw Refused("source " + std::to_string(source.index) + " \"" + source.name +
                      "\" was not detected here: not yet, or another source of the same encoder input was");
    }
    show(request, explanationText(trace), explanationJson(trace));
}

void showParameter(const Request& request) {
    const std::string value = getParameter(request.name);
    show(request, value + '\n', {{"name", request.name}, {"value", value}});
}

void writeParameter(const Request& request) {
    std::string value = request.value;
    if (value == "-") {
        value.clear();
        std::getline(std::cin, value);
    }
    answer(request, setParameter(request.name, value, request.force));
}

void sendSelect(const Request& request) {
    const SourceReport source = meantSource(request);
    answer(request, selectSource(source.index, source.name));
}

void sendAlarm(const Request& request) {
    const SourceReport source = meantSource(request);
    answer(request, raiseAlarm(source.index, source.name, request.text));
}

void run(const Request& request) {
    switch (request.command) {
    case Command::Status:
        return showStatus(request);
    case Command::Sources:
        return showSources(request);
    case Command::Source:
        return showSource(request);
    case Command::Explain:
        return explainSource(request);
    case Command::Get:
        return showParameter(request);
    case Command::Set:
        return writeParameter(request);
    case Command::Select:
        return sendSelect(request);
    case Command::Alarm:
        return sendAlarm(request);
    case Command::Lock:
        return answer(request, sendPlainEvent(EID_LOCK));
    case Command::Reconnect:
        return answer(request, sendPlainEvent(EID_RECONNECT));
    case Command::Flush:
        return answer(request, sendPlainEvent(EID_FLUSHCACHE));
    case Command::Connect:
        return answer(request, setConnected(true));
    case Command::Disconnect:
        return answer(request, setConnected(false));
    case Command::Button:
        return answer(request, pressButton(request.hold));
    case Command::Snapshot:
        return answer(request, saveSnapshot(request.file));
    case Command::Watch:
        return watchDecoder(request.seconds, request.json, std::cout);
    }
}

} // namespace

int main(int argc, char** argv) {
    const auto parsed = parseCommandLine(argc, argv, std::cout, std::cerr);
    if (const int* status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const Request& request = std::get<Request>(parsed);
    if (!request.root.empty()) {
        setenv("APPLIANCE_ROOT", request.root.c_str(), 1);
    }
    // What the library has to say of a failure is for the person at the terminal.
    setenv("LIBCOMMON_LOG", "stderr", 0);
    try {
        run(request);
    } catch (const std::exception& error) {
        if (request.json) {
            std::cout << nlohmann::json{{"error", error.what()}}.dump() << '\n';
        }
        std::cerr << "decoderctl: " << error.what() << '\n';
        return 1;
    }
    std::cout.flush();
    return std::cout ? 0 : 1;
}
