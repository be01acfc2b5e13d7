#include "launcher/model/checker/world.h"

#include "launcher/machine_test.h"

#include <algorithm>
#include <string>
#include <utility>

namespace checker {

namespace {

constexpr int exited = 0; // wait statuses
constexpr int killed = 9;

bool isConfiguration(const Step& step) {
    return step.kind == Kind::AUTO_CONNECT || step.kind == Kind::SEQUENCE_MODE || step.kind == Kind::SOURCES;
}

bool isExit(const Step& step) {
    return step.kind == Kind::EXIT_OF_CURRENT || step.kind == Kind::EXIT_OF_PENDING ||
           step.kind == Kind::EXIT_OF_UNKNOWN;
}

} // namespace

World::World(const Steps& steps) : steps_(steps) {
    resetWorld();
    fake::queueLimits = {{EID_ALARM, 1}, {EID_BUTTON, 2}, {EID_CONNECTPROPERTYCHANGED, 2}};
    fake::now = 1'000'000'000;
    fake::setParam(0, "Decoder.AutoConnect", "yes");
    fake::setParam(0, "Decoder.AutoDetectTimeout", "5");
    fake::setParam(0, "Alarm.DisplayTime", "20");
    fake::setParam(0, "Decoder.SequenceMode", "auto");
    configureSources(3, 7);
    installFakes();
    while (next_ < steps_.size() && isConfiguration(steps_[next_]))
        happen(steps_[next_++]);
}

void World::installFakes() {
    fake::onWait = [this] { return somethingHappens(); };
    fake::onMasterBarrier = [this](int id, std::span<const int> pids) { return meet(id, pids); };
    fake::onGetSourceEntry = [this](int source) { return detect(source); };
    fake::onLaunchPlayer = [this](SourceEntry* entry) { return launch(entry); };
    fake::onSignalPlayer = [this](int pid, int) { hangUp(pid); };
    fake::onSleepSeconds = [this](int seconds) {
        fake::now += seconds * 1'000'000;
        deliverWhatCameMeanwhile();
    };
}

void World::becomeKind() {
    kind_ = true;
    barriers_.clear();
    detections_.clear();
    failingLaunches_ = 0;
    meanwhile_.clear();
}

bool World::somethingHappens() {
    if (!violation_.empty())
        return false;
    if (next_ == steps_.size() && !kind_)
        becomeKind();
    if (kind_)
        return kindnessHappens();
    // An exit in the list may come before the exit of a player that is leaving.
    if (!isExit(steps_[next_]) && someoneLeaves())
        return true;
    take(steps_[next_++]);
    return true;
}

// Delivers the event that the machine waits for, in the order in which events would come by themselves.
bool World::kindnessHappens() {
    if (someoneLeaves())
        return true;
    const bool waitsForChildOnly = fake::calls.back() == "getNextEvent(2)";
    if (waitsForChildOnly) {
        if (alive_.empty()) {
            blame("waits for the exit of a player, and there is none");
            return false;
        }
        exitOf(alive_.back().pid, killed);
        return true;
    }
    fireOwnTimer();
    happen(tellToConnect_ ? tellYes() : tellNo());
    return true;
}

void World::take(const Step& step) {
    if (step.meanwhile)
        meanwhile_.push_back(step);
    else
        happen(step);
}

void World::happen(const Step& step) {
    switch (step.kind) {
    case Kind::SELECT:
        fake::deliver(fake::event(EID_SELECT, step.value));
        break;
    case Kind::ALARM:
        fake::deliver(::alarm(step.value, "text"));
        break;
    case Kind::LOCK:
        fake::deliver(fake::event(EID_LOCK));
        break;
    case Kind::RECONNECT:
        fake::deliver(fake::event(EID_RECONNECT));
        break;
    case Kind::FLUSH:
        fake::deliver(fake::event(EID_FLUSHCACHE));
        break;
    case Kind::SHORT_PRESS:
        fake::deliver(::shortPress());
        break;
    case Kind::LONG_PRESS:
        fake::deliver(::longPress());
        break;
    case Kind::TELL_YES:
    case Kind::TELL_NO:
        fake::setParam(0, "Decoder.Connected", step.kind == Kind::TELL_YES ? "yes" : "no");
        fake::deliver(fake::event(EID_CONNECTPROPERTYCHANGED));
        break;
    case Kind::OWN_TIMER:
        fireOwnTimer();
        break;
    case Kind::STALE_TIMER:
        fireStaleTimer();
        break;
    case Kind::EXIT_OF_CURRENT:
        exitOf(process.currentPID, step.value);
        break;
    case Kind::EXIT_OF_PENDING:
        exitOf(process.pendingPID, step.value);
        break;
    case Kind::EXIT_OF_UNKNOWN:
        fake::deliver(childExit(step.value));
        break;
    case Kind::BARRIER_FAILS:
    case Kind::CURRENT_EXITS_AT_BARRIER:
    case Kind::PENDING_EXITS_AT_BARRIER:
    case Kind::UNKNOWN_EXITS_AT_BARRIER:
    case Kind::BARRIER_PASSES:
        barriers_.push_back(step.kind);
        break;
    case Kind::DETECTION_FAILS:
    case Kind::DETECTION_INTERRUPTED:
        detections_.push_back(step.kind);
        break;
    case Kind::LAUNCH_FAILS:
        ++failingLaunches_;
        break;
    case Kind::AUTO_CONNECT:
        fake::setParam(0, "Decoder.AutoConnect", step.value == 0 ? "no" : "yes");
        break;
    case Kind::SEQUENCE_MODE:
        fake::setParam(0, "Decoder.SequenceMode",
                       step.value == 0   ? "auto"
                       : step.value == 1 ? "manual"
                                         : "Manual");
        break;
    case Kind::SOURCES:
        configureSources(step.value, step.second);
        break;
    case Kind::SECONDS:
        fake::now += step.value * std::int64_t{1'000'000};
        break;
    }
}

void World::deliverWhatCameMeanwhile() {
    for (const Step& step : std::exchange(meanwhile_, {}))
        happen(step);
}

int World::meet(int barrierId, std::span<const int> pids) {
    deliverWhatCameMeanwhile();
    const bool childQueued =
        std::any_of(fake::queue.begin(), fake::queue.end(), [](const Event& e) { return e.id == EID_CHILD; });
    if (childQueued)
        return -1;
    for (const int pid : pids)
        if (find(pid) == nullptr)
            blame("waits at a barrier for " + std::to_string(pid) + ", which is gone");
        else if (barrierId == 1 && pid == process.currentPID && !find(pid)->hungUp)
            blame("waits at a barrier for " + std::to_string(pid) + ", which was not told to stop");
    if (barriers_.empty()) {
        release(barrierId, pids);
        return 0;
    }
    const Kind outcome = barriers_.front();
    barriers_.pop_front();
    return barrierComesTo(outcome, barrierId, pids);
}

int World::barrierComesTo(Kind outcome, int barrierId, std::span<const int> pids) {
    const std::size_t before = fake::queue.size();
    if (outcome == Kind::CURRENT_EXITS_AT_BARRIER)
        exitOf(process.currentPID, killed);
    else if (outcome == Kind::PENDING_EXITS_AT_BARRIER)
        exitOf(process.pendingPID, killed);
    else if (outcome == Kind::UNKNOWN_EXITS_AT_BARRIER)
        fake::deliver(childExit(900));
    else if (outcome == Kind::BARRIER_FAILS) {
        // The player that broke the rule exits, but only later.
        if (Player* player = find(pids.back()))
            player->leaving = true;
        return -1;
    }
    if (fake::queue.size() != before)
        return -1;
    release(barrierId, pids);
    return 0;
}

void World::release(int barrierId, std::span<const int> pids) {
    for (const int pid : pids)
        if (Player* player = find(pid); player != nullptr && barrierId == 1 && player->hungUp)
            player->leaving = true;
}

SourceEntry* World::detect(int source) {
    deliverWhatCameMeanwhile();
    const auto found = fake::cachedSources.find(source);
    if (found == fake::cachedSources.end())
        return nullptr;
    SourceEntry& entry = found->second.entry;
    if (isSourceDetected(source)) {
        entry.detectedOK = true;
        return &entry;
    }
    const Kind outcome = detections_.empty() ? Kind::DETECTION_FAILS : detections_.front();
    entry.detectedOK = detections_.empty();
    found->second.detected = entry.detectedOK;
    if (!detections_.empty())
        detections_.pop_front();
    return !entry.detectedOK && outcome == Kind::DETECTION_INTERRUPTED ? nullptr : &entry;
}

int World::launch(SourceEntry* entry) {
    if (entry == nullptr || !entry->detectedOK)
        return -1;
    if (failingLaunches_ > 0) {
        --failingLaunches_;
        return -1;
    }
    alive_.push_back({.pid = nextPid_, .source = entry->index});
    return nextPid_++;
}

void World::hangUp(int pid) {
    if (pid != process.currentPID || pid == -1)
        blame("signals " + std::to_string(pid) + ", which is not the current player");
    if (Player* player = find(pid))
        player->hungUp = true;
}

Player* World::find(int pid) {
    const auto found =
        std::find_if(alive_.begin(), alive_.end(), [&](const Player& p) { return p.pid == pid; });
    return found == alive_.end() ? nullptr : &*found;
}

void World::exitOf(int pid, int status) {
    if (find(pid) == nullptr)
        return;
    std::erase_if(alive_, [&](const Player& p) { return p.pid == pid; });
    fake::deliver(childExit(pid, status));
}

bool World::someoneLeaves() {
    const auto leaving =
        std::find_if(alive_.begin(), alive_.end(), [](const Player& p) { return p.leaving; });
    if (leaving == alive_.end())
        return false;
    exitOf(leaving->pid, exited);
    return true;
}

void World::fireOwnTimer() {
    if (fake::lastTimerId == firedTimer_)
        return;
    firedTimer_ = fake::lastTimerId;
    fake::now += fake::lastTimeout * 1000;
    fake::deliver(fake::event(EID_TIMEOUT, firedTimer_));
}

void World::fireStaleTimer() const {
    fake::deliver(fake::event(EID_TIMEOUT, fake::lastTimerId - 1));
}

void World::configureSources(int count, int enabledMask) const {
    fake::sources.clear();
    for (int index = 0; index < count; ++index) {
        SourceParams source = makeSource(index);
        if ((enabledMask >> index & 1) == 0)
            source["AutoEnabled"] = source["ManualEnabled"] = "no";
        fake::sources.push_back(std::move(source));
        if (!fake::cachedSources.contains(index))
            fake::addSource(index, "input " + std::to_string(index == 3 ? 1 : index));
    }
    std::erase_if(fake::cachedSources, [&](const auto& source) { return source.first >= count; });
}

void World::blame(const std::string& what) {
    if (violation_.empty())
        violation_ = what;
}

} // namespace checker
