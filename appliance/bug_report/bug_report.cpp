#include "appliance/bug_report/bug_report.h"

#include "appliance/bug_report/archive.h"
#include "appliance/bug_report/secret_hider.h"
#include "appliance/bug_report/sections.h"
#include "appliance/settings/parameter_check.h"

#include <ctime>
#include <exception>
#include <iterator>
#include <utility>

namespace bug_report {
namespace {

// "decoder-report-20260131-235959", in UTC.
std::string folderName() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "decoder-report-%Y%m%d-%H%M%S", &parts);
    return text;
}

// A configuration that can't be read can't have given a program a password either.
SecretHider hiderOfTheConfiguration() {
    try {
        return SecretHider(readParameterText(configurationFile()));
    } catch (const std::exception&) {
        return SecretHider("");
    }
}

void append(std::vector<Part>& all, std::vector<Part> more) {
    all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

} // namespace

Made makeBugReport(const std::string& file) {
    std::vector<Part> parts = decoderParts();
    append(parts, machineParts());
    append(parts, logParts());
    const SecretHider hider = hiderOfTheConfiguration();
    for (Part& part : parts)
        part.text = hider.hidden(part.text);
    const std::string folder = folderName();
    Made made{file.empty() ? folder + ".tar.gz" : file, parts.size(), 0};
    made.bytes = writeArchive(made.file, folder, parts);
    return made;
}

std::string sentenceOf(const Made& made) {
    return "saved " + made.file + ", " + std::to_string(made.parts) + " files, " +
           std::to_string((made.bytes + 1023) / 1024) +
           " KiB; passwords are hidden, names and addresses are not: look at it before you send it";
}

} // namespace bug_report
