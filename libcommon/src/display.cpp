#include <libcommon/display.h>

#include "libcommon/src/files.h"
#include "libcommon/src/utf8.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr std::size_t maximumText = 255;
constexpr std::size_t maximumFile = 1024;
constexpr int leds = 256;

std::string displayPath(const std::string& name) {
    return libcommon::appliancePath("/run/decoder/display/") + name;
}

std::string linePath(int line) {
    return displayPath("line" + std::to_string(line));
}

std::string ledPath(int led) {
    return displayPath("led" + std::to_string(led));
}

void logFailure(const char* what, const std::string& path) {
    logmsg(3, "Failed to %s %s. (errno=%d %s)", what, path.c_str(), errno, std::strerror(errno));
}

void write(const std::string& path, const std::string& content) {
    if (!local::replaceSmallFile(path, content))
        logFailure("write", path);
}

// The file's text; empty when it is missing or can't be read.
std::string read(const std::string& path) {
    std::string text;
    if (!local::readSmallFile(path, maximumFile, text)) {
        if (errno != ENOENT)
            logFailure("read", path);
        text.clear();
    }
    return text;
}

bool isLine(int line) {
    if (line >= 0 && line < libcommon::osdLines)
        return true;
    logmsg(3, "There is no OSD line %d.", line);
    return false;
}

bool isLed(int led) {
    if (led >= 0 && led < leds)
        return true;
    logmsg(3, "There is no LED %d.", led);
    return false;
}

} // namespace

// A line's file: when the text was shown (microseconds), for how many seconds (0: until cleared), a newline,
// the text.

void osdPrintf(int line, int displayTime, const char* format, ...) {
    if (!isLine(line))
        return;
    if (format == nullptr) {
        logmsg(3, "There is no text for OSD line %d.", line);
        return;
    }
    if (displayTime < 0) {
        logmsg(3, "OSD line %d: %d is no display time; the text stays until it is cleared.", line,
               displayTime);
        displayTime = 0;
    }
    char text[4 * maximumText];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) {
        logmsg(3, "OSD line %d: the text can't be formatted. (errno=%d %s)", line, errno,
               std::strerror(errno));
        return;
    }
    const std::size_t have = std::min<std::size_t>(static_cast<std::size_t>(length), sizeof text - 1);
    write(linePath(line), std::to_string(gettimeusec()) + " " + std::to_string(displayTime) + "\n" +
                              local::cleanText({text, have}, maximumText));
}

void osdClear(int line) {
    if (!isLine(line))
        return;
    const std::string path = linePath(line);
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        logFailure("remove", path);
}

void osdBlank() {
    write(displayPath("blank"), std::to_string(gettimeusec()) + "\n");
}

void set_led(int led, int colour, int pattern) {
    if (isLed(led))
        write(ledPath(led), std::to_string(colour) + " " + std::to_string(pattern) + "\n");
}

namespace libcommon {

std::string osdText(int line) {
    if (!isLine(line))
        return "";
    const std::string content = read(linePath(line));
    std::int64_t shown = 0;
    int seconds = 0;
    const std::size_t heading = content.find('\n');
    if (heading == std::string::npos || std::sscanf(content.c_str(), "%" SCNd64 " %d", &shown, &seconds) != 2)
        return "";
    const std::int64_t now = gettimeusec();
    // A time in the future was written before the machine was restarted, which reset the clock.
    const bool isOver = seconds > 0 && (now < shown || now - shown >= seconds * std::int64_t{1'000'000});
    return isOver ? "" : local::cleanText(std::string_view(content).substr(heading + 1), maximumText);
}

std::int64_t osdBlankTime() {
    std::int64_t time = 0;
    if (std::sscanf(read(displayPath("blank")).c_str(), "%" SCNd64, &time) != 1 || time > gettimeusec())
        return 0;
    return time;
}

LedState ledState(int led) {
    LedState state;
    if (isLed(led) && std::sscanf(read(ledPath(led)).c_str(), "%d %d", &state.colour, &state.pattern) != 2)
        state = {};
    return state;
}

} // namespace libcommon
