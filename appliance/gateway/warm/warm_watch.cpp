#include "appliance/gateway/warm/warm_watch.h"

#include <libcommon/clock.h>
#include <libcommon/paths.h>
#include <libcommon/status.h>

#include <chrono>
#include <cstdlib>
#include <sys/stat.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds lookTime(200);

// Tells versions of a file or a folder apart; "" when there is none. A folder changes when a file in it is replaced. A
// change may follow within the clock's tick, so a young one is looked at again.
std::string stampOf(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0)
        return "";
    constexpr std::int64_t young = 1;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::string stamp = std::to_string(file.st_ino) + " " + std::to_string(file.st_size) + " " +
                        std::to_string(file.st_mtim.tv_sec) + " " + std::to_string(file.st_mtim.tv_nsec);
    if (now.tv_sec - file.st_mtim.tv_sec <= young)
        stamp += " " + std::to_string(now.tv_sec) + "." + std::to_string(now.tv_nsec / 100'000'000);
    return stamp;
}

DetectedValues detectedValues(int index) {
    return {.errorCode = status(index, "ErrorCode"),
            .type = status(index, "VideoSourceType"),
            .connectMode = status(index, "ConnectMode"),
            .apiVersion = status(index, "APIVersion"),
            .trace = status(index, "DetectionTrace")};
}

int numberIn(const SourceParams& section, const char* key) {
    const auto found = section.find(key);
    return found == section.end() ? 0 : std::atoi(found->second.c_str());
}

} // namespace

WarmWatch::WarmWatch(EventLoop& loop, std::function<void(const WarmPlan&)> take)
    : loop_(loop), take_(std::move(take)) {}

WarmWatch::~WarmWatch() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void WarmWatch::start() {
    thread_ = std::thread(&WarmWatch::run, this);
}

void WarmWatch::run() {
    for (;;) {
        if (filesChanged())
            readSources();
        readMoment(gettimeusec());
        if (WarmPlan present = plan(); !std::exchange(told_, true) || present != last_) {
            last_ = present;
            loop_.later([this, present = std::move(present)] { take_(present); });
        }
        std::unique_lock guard(lock_);
        if (changed_.wait_for(guard, lookTime, [this] { return ending_; }))
            return;
    }
}

bool WarmWatch::filesChanged() {
    std::map<std::string, std::string> stamps;
    const auto look = [&](const std::string& path) {
        const std::string whole = libcommon::appliancePath(path);
        stamps[whole] = stampOf(whole);
    };
    look("/etc/decoder/decoder.conf");
    for (std::size_t i = 0; i < sources_.size(); ++i)
        look("/run/decoder/source/" + std::to_string(i));
    return std::exchange(stamps_, stamps) != stamps;
}

void WarmWatch::readSources() {
    const ParamWrapper parameters(0, false);
    settings_ =
        WarmSettings::read(parameters["Warm.Sources"].toString(), parameters["Warm.MaxSources"].toInt(),
                           parameters["Warm.MaxMemory"].toInt());
    moment_.automatic = parameters["Decoder.SequenceMode"] == "auto";
    sources_.clear();
    for (const SourceParams& section : getSubGroups(0, "Encoder"))
        sources_.push_back({section, detectedValues(static_cast<int>(sources_.size()))});
}

// The time of the present source's turn begins when it is first seen here.
void WarmWatch::readMoment(std::int64_t now) {
    const ParamWrapper information(1, false);
    const std::string text = information["Decoder.Info.CurrentSource"].toString();
    const bool connected = information["Decoder.Info.Connected"] == "yes";
    const int current = text.empty() || !connected ? -1 : std::atoi(text.c_str());
    if (current != moment_.current)
        currentSince_ = now;
    moment_.current = current;
    moment_.shownMs = (now - currentSince_) / 1000;
}

WarmPlan WarmWatch::plan() const {
    WarmPlan made{settings_, planWarm(settings_, sources_, moment_), {}};
    for (const WarmTarget& target : made.targets) {
        const SourceParams& section = sources_[static_cast<std::size_t>(target.sources.front())].section;
        const auto url = section.find("URL");
        if (url != section.end() && !url->second.empty())
            made.cameras[target.stream.address.text()] = numberIn(section, "VideoSourceNumber");
    }
    return made;
}

} // namespace gateway
