#include <libcommon/connected.h>

#include "libcommon/src/connected.h"
#include "libcommon/src/files.h"
#include "libcommon/src/ini_lines.h"
#include "libcommon/src/parameter_files.h"
#include "libcommon/src/parameter_snapshot.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>
#include <libcommon/text.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace local {

namespace {

constexpr std::size_t maximumCopy = maximumParameterFile + 1024;
constexpr const char* supervisorName = "Decoder.Connect.Supervisor";
constexpr const char* modeName = "Decoder.Connect.Mode";
constexpr const char* fileName = "Decoder.Connect.File";

std::string copyPath() {
    return libcommon::appliancePath("/run/decoder/connected.conf");
}

// Tells versions of parameter file 0 apart.
std::string presentStamp() {
    struct stat file {};
    if (stat(parameterFilePath(0).c_str(), &file) != 0)
        return "none";
    const FileStamp stamp = stampOf(file);
    std::string text;
    for (const std::int64_t part : {static_cast<std::int64_t>(stamp.inode),
                                    static_cast<std::int64_t>(stamp.size), stamp.modified, stamp.changed})
        text += (text.empty() ? "" : " ") + std::to_string(part);
    return text;
}

// By its beginning, so that a line without '=' does not reveal a password either. A camera's URL may have one, too.
bool isCredential(std::string_view line) {
    const std::string_view content = libcommon::trimmed(line);
    if (NameEqual{}(content.substr(0, 3), "URL") && content.find('@') != std::string_view::npos)
        return true;
    return NameEqual{}(content.substr(0, 8), "Password") || NameEqual{}(content.substr(0, 8), "UserName");
}

// Does not parse each line, because the supervisor waits meanwhile.
std::string withoutCredentials(std::string_view text) {
    std::string result;
    result.reserve(text.size() + 256);
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        if (!isCredential(text.substr(0, end)))
            result += text.substr(0, end);
        text.remove_prefix(end);
    }
    return result;
}

bool readCopy(ParameterSnapshot& snapshot) {
    std::string text;
    if (!readSmallFile(copyPath(), maximumCopy, text))
        return false;
    parse(std::move(text), snapshot);
    return !snapshot.value(supervisorName).empty();
}

// The mode that the supervisor derives from the text: an unknown text keeps the mode, and the first mode is "auto".
std::string modeInForce(std::string_view configured) {
    if (configured == "auto" || configured == "manual")
        return std::string(configured);
    ParameterSnapshot before;
    const bool mine = readCopy(before) && before.value(supervisorName) == std::to_string(getpid());
    return mine ? std::string(before.value(modeName)) : "auto";
}

void keepCopy() {
    const std::string stamp = presentStamp();
    const auto present = currentParameters(0);
    std::string text = withoutCredentials(present->text);
    text += "\n[Decoder.Connect]\nSupervisor = " + std::to_string(getpid());
    text += "\nMode = " + modeInForce(present->value("Decoder.SequenceMode"));
    text += "\nFile = " + stamp + '\n';
    if (!replaceSmallFile(copyPath(), text))
        logmsg(3, "Failed to write %s. (errno=%d %s)", copyPath().c_str(), errno, std::strerror(errno));
}

} // namespace

void noteWrite(int fileId, std::string_view name, std::string_view value) {
    if (fileId == 1 && value == "yes" && NameEqual{}(name, "Decoder.Info.Connected"))
        keepCopy();
}

} // namespace local

namespace libcommon {

ConnectedConfiguration connectedConfiguration() {
    ConnectedConfiguration result;
    const auto snapshot = std::make_shared<ParameterSnapshot>();
    if (!local::readCopy(*snapshot))
        return result;
    const std::string_view pid = snapshot->value(local::supervisorName);
    std::from_chars(pid.data(), pid.data() + pid.size(), result.supervisor);
    result.known = true;
    result.sequenceMode = snapshot->value(local::modeName);
    result.sources = SubGroups(std::make_shared<local::Sections>(snapshot, "Encoder"));
    result.unchanged = snapshot->value(local::fileName) == local::presentStamp();
    return result;
}

} // namespace libcommon
