// decoderctl: the control command of the decoder.
#include "appliance/commands/actions.h"
#include "appliance/commands/connection.h"
#include "appliance/commands/parameter_commands.h"
#include "appliance/commands/source_commands.h"
#include "appliance/ctl/ctl_command_line.h"
#include "appliance/ctl/discover_command.h"
#include "appliance/ctl/fleet_command.h"
#include "appliance/ctl/panel_commands.h"
#include "appliance/ctl/password_prompt.h"
#include "appliance/ctl/report_command.h"
#include "appliance/ctl/snapshot.h"
#include "appliance/ctl/sweep_command.h"
#include "appliance/ctl/watch.h"
#include "appliance/front/arguments.h"
#include "appliance/operating/button.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/muting.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/decoder_status.h"
#include "appliance/reporting/explanation.h"
#include "appliance/reporting/in_force.h"
#include "appliance/reporting/json_text.h"
#include "appliance/reporting/source_names.h"
#include "appliance/reporting/source_report.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"

#include <libcommon/status.h>
#include <libcommon/text.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace {

// Prints the answer of a command that does something: a sentence, or {"done": sentence}.
void answer(const Request& request, const std::string& sentence) {
    if (request.json) {
        std::cout << jsonLine({{"done", sentence}}) << '\n';
    } else if (!sentence.empty()) {
        std::cout << libcommon::printable(sentence) << '\n';
    }
}

void show(const Request& request, const std::string& text, const nlohmann::json& json) {
    std::cout << (request.json ? jsonLines(json) : text);
}

void showNames(const Request& request, const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += libcommon::printable(name) + '\n';
    }
    show(request, text, names);
}

void showStatus(const Request& request) {
    requireRunningAppliance();
    requireReadableConfiguration();
    const DecoderStatus status = readDecoderStatus();
    show(request, statusText(status), statusJson(status));
}

std::vector<SourceReport> readSources() {
    requireReadableConfiguration();
    return readSourceReports(readInForce());
}

void showSources(const Request& request) {
    std::vector<SourceReport> sources = readSources();
    if (request.names) {
        return showNames(request, sourceNames(sources));
    }
    addWarmReports(sources);
    const int current = readDecoderStatus().currentSource;
    show(request, sourcesText(sources, current), sourcesJson(sources, current));
}

// The source that the command line names.
SourceReport namedSource(const Request& request) {
    std::vector<SourceReport> sources = readSources();
    addWarmReports(sources);
    return std::move(sources[resolveSource(request.source, sourceNames(sources))]);
}

void showSource(const Request& request) {
    const SourceReport source = namedSource(request);
    show(request, sourceText(source), sourceJson(source));
}

void explainSource(const Request& request) {
    const SourceReport source = namedSource(request);
    const std::vector<TraceLine> trace = readTrace(status(source.index, "DetectionTrace"));
    if (trace.empty()) {
        throw Refused(
            "source " + std::to_string(source.index) + ' ' + inQuotes(source.name) +
            " was not detected: it was not shown yet, or it shares the detection of another source of the "
            "same encoder input");
    }
    const std::string reason = status(source.index, "Reason");
    show(request,
         explanationText(trace) + (reason.empty() ? "" : "gateway: " + libcommon::printable(reason) + '\n'),
         explanationJson(trace));
}

void showParameters(const Request& request) {
    if (!request.name.empty()) {
        const KnownParameter* known = findParameter(request.name);
        return showNames(request, known == nullptr ? std::vector<std::string>{} : valueWords(*known));
    }
    if (request.names) {
        return showNames(request, parameterNames());
    }
    show(request, parametersText(), parametersJson());
}

void showParameter(const Request& request) {
    const std::string value = getParameter(request.name);
    show(request, libcommon::printable(value) + '\n', {{"name", request.name}, {"value", value}});
}

void writeParameter(const Request& request) {
    std::string value = request.value;
    if (value == "-") {
        value.clear();
        std::getline(std::cin, value);
    }
    answer(request, setParameter(request.name, value, request.force));
}

// Returns the exit status: 1 when there are mistakes.
int checkParameters(const Request& request) {
    const std::string file = request.file.empty() ? configurationFile() : request.file;
    const std::vector<Finding> findings = findMistakes(readParameterText(file));
    show(request, findingsText(file, findings), findingsJson(file, findings));
    return findings.empty() ? 0 : 1;
}

void sendSelect(const Request& request) {
    const SourceReport source = namedSource(request);
    answer(request, selectSource(source.index, source.name));
}

void sendAlarm(const Request& request) {
    const SourceReport source = namedSource(request);
    answer(request, raiseAlarm(source.index, source.name, request.text));
}

std::string addNamedSource(const Request& request) {
    const SourceToAdd source = sourceToAdd(request.found, request.profile, request.name, request.url);
    CameraAccess access{.url = source.url,
                        .subUrl = request.found == 0 ? request.subUrl : source.subUrl,
                        .subMayFail = request.found != 0,
                        .user = request.user,
                        .password = ""};
    if (!request.user.empty() || request.passwordInput) {
        access.password = readPassword(request.passwordInput);
    }
    return addSource(source.name, access, {.unchecked = request.unchecked, .apply = request.apply});
}

std::string orderNamedSources(const Request& request) {
    const std::vector<std::string> names = sourceNames(readSources());
    std::vector<int> indices;
    for (const std::string& source : request.sources) {
        indices.push_back(resolveSource(source, names));
    }
    return orderSources(indices, request.apply);
}

std::string removeNamedSource(const Request& request) {
    const SourceReport source = namedSource(request);
    return removeSource(source.index, source.name, request.apply);
}

std::string renameNamedSource(const Request& request) {
    const SourceReport source = namedSource(request);
    return renameSource(source.index, source.name, request.name, request.apply);
}

void runCommand(const Request& request) {
    switch (request.command) {
    case Command::Status:
        return showStatus(request);
    case Command::Sources:
        return showSources(request);
    case Command::Source:
        return showSource(request);
    case Command::Explain:
        return explainSource(request);
    case Command::Parameters:
        return showParameters(request);
    case Command::Get:
        return showParameter(request);
    case Command::Set:
        return writeParameter(request);
    case Command::Apply:
        return answer(request, applyConfiguration());
    case Command::Check:
        return; // it has its own exit status
    case Command::Select:
        return sendSelect(request);
    case Command::Alarm:
        return sendAlarm(request);
    case Command::Lock:
        return answer(request, lockDecoder());
    case Command::Reconnect:
        return answer(request, endLock());
    case Command::Flush:
        return answer(request, flushDetections());
    case Command::Connect:
        return answer(request, setConnected(true, request.wait));
    case Command::Disconnect:
        return answer(request, setConnected(false, request.wait));
    case Command::Button:
        return answer(request, pressButton(request.hold));
    case Command::Snapshot:
        return answer(request, saveSnapshot(request.file, request.size));
    case Command::Report:
        becomeReport(request);
    case Command::Watch:
        return watchDecoder(request.seconds, request.json, std::cout);
    case Command::Mute:
        return answer(request, muteSound(true));
    case Command::Unmute:
        return answer(request, muteSound(false));
    case Command::Volume:
        return answer(request, setSoundVolume(request.volume));
    case Command::Add:
        return answer(request, addNamedSource(request));
    case Command::Remove:
        return answer(request, removeNamedSource(request));
    case Command::Rename:
        return answer(request, renameNamedSource(request));
    case Command::Order:
        return answer(request, orderNamedSources(request));
    case Command::PanelOpen:
        return showPanelLink(request, std::cout);
    case Command::PanelPassword:
        return answer(request, setPanelPassword(request));
    case Command::PanelToken:
        return makePanelToken(request, std::cout);
    case Command::PanelTokens:
        return showPanelTokens(request, std::cout);
    case Command::Sweep:
        return answer(request, sweepAppliance());
    case Command::Discover:
        return discover(request.discover, request.json, std::cout);
    }
}

// Returns the exit status.
int run(const Request& request) {
    if (!request.fleet.broker.empty()) {
        becomeFleet(request);
    }
    if (request.command == Command::Check) {
        return checkParameters(request);
    }
    runCommand(request);
    return 0;
}

// An installed decoder is found without a variable, which sudo would not keep.
void chooseRoot(const Request& request) {
    constexpr const char* installed = "/var/lib/decoder";
    if (!request.root.empty()) {
        setenv("APPLIANCE_ROOT", request.root.c_str(), 1);
    } else if (std::error_code unknown; std::filesystem::is_directory(installed, unknown)) {
        setenv("APPLIANCE_ROOT", installed, 0);
    }
}

} // namespace

int main(int argc, char** argv) {
    front::Arguments arguments(argc, argv);
    const auto parsed = parseCommandLine(arguments.count(), arguments.values(), std::cout, std::cerr);
    if (const int* status = std::get_if<int>(&parsed)) {
        return *status;
    }
    const Request& request = std::get<Request>(parsed);
    chooseRoot(request);
    // The user sees at the terminal why a call of the library failed.
    setenv("LIBCOMMON_LOG", "stderr", 0);
    int status = 0;
    try {
        status = run(request);
    } catch (const std::exception& error) {
        if (request.json) {
            std::cout << jsonLine({{"error", error.what()}}) << '\n';
        }
        std::cerr << "decoderctl: " << libcommon::printable(error.what()) << '\n';
        return 1;
    }
    std::cout.flush();
    return std::cout ? status : 1;
}
