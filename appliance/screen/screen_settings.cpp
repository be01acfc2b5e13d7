#include "appliance/screen/screen_settings.h"

#include <libcommon/log.h>
#include <libcommon/text.h>

#include <charconv>

namespace screen {
namespace {

constexpr std::int64_t readingIntervalUs = 250'000;
constexpr int mostNameSeconds = 3600;

struct ParameterText {
    const char* name;
    const char* allowed;
};

constexpr std::array<ParameterText, 4> parameters{{
    {"Screen.Size", "auto or WIDTHxHEIGHT, even numbers from 160x120 to 3840x2160"},
    {"Screen.Fit", "bars, fill or crop"},
    {"Screen.ShowName", "no, always or a number of seconds from 1 to 3600"},
    {"Screen.ShowClock", "yes or no"},
}};

std::optional<int> number(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && value >= 0 ? std::optional(value) : std::nullopt;
}

bool isSide(std::optional<int> side, int least, int most) {
    return side && *side >= least && *side <= most && *side % 2 == 0;
}

// The functions below return false when they refuse a value; an empty one is accepted.
bool readSize(const std::string& value, ScreenSettings& settings) {
    settings.size = screenSize(value);
    return settings.size || value.empty() || value == "auto";
}

bool readFit(const std::string& value, ScreenSettings& settings) {
    settings.fit = value == "fill" ? Fit::fill : value == "crop" ? Fit::crop : Fit::bars;
    return settings.fit != Fit::bars || value.empty() || value == "bars";
}

bool readShowName(const std::string& value, ScreenSettings& settings) {
    const std::optional<int> seconds = number(value);
    const bool usable = seconds && *seconds >= 1 && *seconds <= mostNameSeconds;
    settings.nameAlways = value == "always";
    settings.nameSeconds = usable ? *seconds : 0;
    return usable || settings.nameAlways || value.empty() || value == "no";
}

bool readShowClock(const std::string& value, ScreenSettings& settings) {
    settings.clock = value == "yes";
    return settings.clock || value.empty() || value == "no";
}

using ReadValue = bool (*)(const std::string&, ScreenSettings&);
constexpr std::array<ReadValue, parameters.size()> readers{readSize, readFit, readShowName, readShowClock};

} // namespace

std::optional<Size> screenSize(std::string_view text) {
    const std::size_t times = text.find('x');
    if (times == std::string_view::npos)
        return std::nullopt;
    const std::optional<int> width = number(text.substr(0, times));
    const std::optional<int> height = number(text.substr(times + 1));
    if (!isSide(width, smallestScreen.width, largestScreen.width) ||
        !isSide(height, smallestScreen.height, largestScreen.height))
        return std::nullopt;
    return Size{*width, *height};
}

std::string sizeText(Size size) {
    return std::to_string(size.width) + 'x' + std::to_string(size.height);
}

const ScreenSettings& SettingsReader::at(std::int64_t now, const ApplianceView& appliance) {
    if (now >= readAgainAt_) {
        read(appliance);
        readAgainAt_ = now + readingIntervalUs;
    }
    return settings_;
}

void SettingsReader::read(const ApplianceView& appliance) {
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const std::string value = appliance.parameter(parameters[i].name);
        if (readers[i](value, settings_))
            refused_[i].clear();
        else
            refuse(i, value);
    }
}

void SettingsReader::refuse(std::size_t parameter, const std::string& value) {
    if (refused_[parameter] == value)
        return;
    refused_[parameter] = value;
    logmsg(3, "%s takes %s, not \"%s\"; the default is used", parameters[parameter].name,
           parameters[parameter].allowed, libcommon::printable(value).c_str());
}

} // namespace screen
