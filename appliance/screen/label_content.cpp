#include "appliance/screen/label_content.h"

#include <charconv>
#include <ctime>
#include <string_view>

namespace screen {
namespace {

constexpr std::int64_t readingIntervalUs = 500'000;

std::string clockText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &local)};
}

std::string nameOf(int source, const ApplianceView& appliance) {
    const std::vector<std::string> names = appliance.sourceNames();
    const auto index = static_cast<std::size_t>(source);
    return index < names.size() ? names[index] : "";
}

// The source that the supervisor has no connection to, by its text "No connection to encoder NAME(ADDRESS)"; -1: there is no
// such text. That source is not the current one yet, or another one is.
int unconnectedSource(const ApplianceView& appliance) {
    constexpr std::string_view beginning = "No connection to encoder ";
    int found = -1;
    std::size_t longest = 0;
    for (const std::string& text : appliance.texts()) {
        if (!text.starts_with(beginning))
            continue;
        const std::string_view named = std::string_view(text).substr(beginning.size());
        const std::vector<std::string> names = appliance.sourceNames();
        for (std::size_t i = 0; i < names.size(); ++i) {
            // A name may have a bracket of its own.
            if (names[i].size() < longest || !named.starts_with(names[i] + "("))
                continue;
            longest = names[i].size() + 1;
            found = static_cast<int>(i);
        }
    }
    return found;
}

// The source that has no picture.
int sourceWithoutPicture(const ApplianceView& appliance) {
    const int unconnected = unconnectedSource(appliance);
    return unconnected < 0 ? currentSource(appliance) : unconnected;
}

} // namespace

int currentSource(const ApplianceView& appliance) {
    const std::string text = appliance.information("Decoder.Info.CurrentSource");
    int source = -1;
    std::from_chars(text.data(), text.data() + text.size(), source);
    return source;
}

std::string stillText(const std::string& seconds) {
    constexpr long minute = 60;
    constexpr long hour = 3600;
    long count = 0;
    const char* last = seconds.data() + seconds.size();
    const auto [end, error] = std::from_chars(seconds.data(), last, count);
    if (error != std::errc() || end != last || count <= 0)
        return "";
    if (count < 2 * minute)
        return "still for " + std::to_string(count) + " s";
    if (count < 2 * hour)
        return "still for " + std::to_string(count / minute) + " min";
    return "still for " + std::to_string(count / hour) + " h";
}

void LabelContent::toggleName() {
    nameWanted_ = parts_.name.empty();
}

bool LabelContent::showsName(std::int64_t now, const ShownSource& shown,
                             const ScreenSettings& settings) const {
    if (nameWanted_)
        return *nameWanted_;
    return settings.nameAlways || now - shown.visibleSince < settings.nameSeconds * std::int64_t{1'000'000};
}

void LabelContent::readSource(int source, const ApplianceView& appliance) {
    name_ = source < 0 ? "" : nameOf(source, appliance);
    // A source without a picture is not visible, but it may say why.
    reason_ = appliance.status(source < 0 ? sourceWithoutPicture(appliance) : source, "Reason");
    still_ = stillText(appliance.status(source, "Still"));
    source_ = source;
}

const LabelParts& LabelContent::at(std::int64_t now, const ShownSource& shown, const ScreenSettings& settings,
                                   const ApplianceView& appliance) {
    if (shown.source != source_ || now >= readAgainAt_) {
        readSource(shown.source, appliance);
        readAgainAt_ = now + readingIntervalUs;
    }
    parts_.name = showsName(now, shown, settings) ? name_ : "";
    parts_.reason = reason_;
    parts_.clock = settings.clock ? clockText() : "";
    parts_.still = still_;
    return parts_;
}

} // namespace screen
