#include "appliance/gateway/service/keeper.h"

#include "appliance/gateway/service/screen_room.h"

#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/paths.h>
#include <libcommon/status.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds lookTime(300); // between two looks at the file
constexpr const char* highestName = "Gateway.HighestNumber";
constexpr const char* portName = "Gateway.Port";
constexpr const char* neverRead = "never read"; // no version of the file

std::string parameterPath() {
    return libcommon::appliancePath("/etc/decoder/decoder.conf");
}

// Tells versions of a file apart; "" when there is none.
std::string stampOf(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0)
        return "";
    std::ostringstream text;
    text << file.st_ino << ' ' << file.st_size << ' ' << file.st_mtim.tv_sec << ' ' << file.st_mtim.tv_nsec;
    return text.str();
}

std::string stampOfFile() {
    return stampOf(parameterPath());
}

std::string readText() {
    std::ifstream file(parameterPath(), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

Keeper::Keeper(EventLoop& loop, int port, std::function<void(const SourcePlan&)> take)
    : loop_(loop), take_(std::move(take)), stamp_(neverRead), port_(port) {}

Keeper::~Keeper() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void Keeper::start() {
    lookAtFile();
    thread_ = std::thread(&Keeper::run, this);
}

void Keeper::run() {
    for (;;) {
        {
            std::unique_lock guard(lock_);
            changed_.wait_for(guard, lookTime, [this] { return ending_ || planAgain_ || !waiting_.empty(); });
            if (std::exchange(planAgain_, false))
                stamp_ = neverRead;
            if (ending_ && waiting_.empty())
                return;
        }
        writeStatus();
        lookAtFile();
    }
}

// The choice between main and sub streams follows the screen's size.
void Keeper::lookAtScreen() {
    const std::string stamp =
        stampOfFile() + ' ' + stampOf(libcommon::appliancePath("/run/decoder/info.conf"));
    if (stamp == screenStamp_)
        return;
    screenStamp_ = stamp;
    if (std::exchange(smallScreen_, isSmallScreen(readScreenTexts())) != smallScreen_)
        stamp_ = neverRead;
}

void Keeper::lookAtFile() {
    lookAtScreen();
    std::string stamp = stampOfFile();
    if (stamp == stamp_)
        return;
    SourcePlan present = plan();
    const bool numbersChange = present.highestNumber != ParamWrapper(0, false)[highestName].toInt();
    if (!present.missing.empty() || (numbersChange && !present.sources.empty())) {
        if (userOpenAndLockParamFile(0, 1) != 0)
            return;       // another program holds it; the next look tries again
        present = plan(); // under the lock
        const bool good = complete(present);
        userCloseAndUnlockParamFile(0, 1);
        Event event{};
        event.id = EID_CONNECTPROPERTYCHANGED;
        if (good)
            sendEvent(&event); // a decoder that does not run reads the file when it starts
        stamp = stampOfFile();
    }
    stamp_ = stamp;
    loop_.later([this, present] { take_(present); });
}

// Writes what the sections lack. The highest number comes first: a number must never be given twice.
bool Keeper::complete(const SourcePlan& plan) const {
    ParamWrapper parameters(0, true);
    if (parameters[highestName].toInt() != plan.highestNumber) {
        parameters[highestName] = plan.highestNumber;
        if (parameters[highestName].toInt() != plan.highestNumber)
            return false;
    }
    for (const ParameterWrite& one : plan.missing) {
        parameters[one.name.c_str()] = one.value.c_str();
        // A password that the file can't have must not be taken out of its URL, which comes after it.
        if (parameters[one.name.c_str()].toString() != one.value)
            return false;
    }
    return true;
}

SourcePlan Keeper::plan() {
    int port = 0;
    LearnedKinds learned;
    {
        const std::lock_guard guard(lock_);
        port = port_;
        learned = learned_;
    }
    const ParamWrapper parameters(0, false);
    SourcePlan made =
        planSources(sectionsIn(readText()), parameters[highestName].toInt(), port, smallScreen_, learned);
    made.port = parameters[portName].toInt();
    return made;
}

void Keeper::setPort(int port) {
    const std::lock_guard guard(lock_);
    port_ = port;
    planAgain_ = true;
    changed_.notify_all();
}

void Keeper::learn(const std::string& url, bool pictures) {
    const std::lock_guard guard(lock_);
    const auto [known, added] = learned_.try_emplace(url, !pictures);
    if (std::exchange(known->second, pictures) == pictures)
        return;
    planAgain_ = true;
    changed_.notify_all();
}

void Keeper::setStatus(int index, const std::string& key, const std::string& value) {
    const std::lock_guard guard(lock_);
    waiting_[{index, key}] = value;
    changed_.notify_all();
}

void Keeper::writeStatus() {
    std::map<std::pair<int, std::string>, std::string> values;
    {
        const std::lock_guard guard(lock_);
        values.swap(waiting_);
    }
    // Compared with the file: the supervisor clears values, too.
    for (const auto& [place, value] : values) {
        if (status(place.first, place.second) != value)
            status(place.first, place.second, value.c_str());
    }
}

} // namespace gateway
