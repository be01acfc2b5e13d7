#include "bench/supervisor/tiny_decoder.h"

#include "tests/appliance/event_sender.h"

#include <libcommon/events.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::microseconds betweenLooks{100};

template<class Condition>
bool soon(Condition condition, double seconds) {
    const std::int64_t until = clockNs() + static_cast<std::int64_t>(seconds * 1e9);
    while (!condition()) {
        if (clockNs() > until)
            return false;
        appliance::pause(std::chrono::milliseconds(0));
        const timespec time{0, std::chrono::nanoseconds(betweenLooks).count()};
        nanosleep(&time, nullptr);
    }
    return true;
}

} // namespace

std::int64_t clockNs() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::string benchProgram(const std::string& name) {
    return std::string(BENCH_PROGRAMS) + '/' + name;
}

std::optional<Start> Starts::next(double seconds) {
    Start start;
    const auto read = [&] {
        std::ifstream file(file_);
        file.seekg(static_cast<std::streamoff>(position_));
        std::string line;
        if (!std::getline(file, line) || file.eof()) // without its end it is not whole
            return false;
        long long time = 0;
        if (std::sscanf(line.c_str(), "%lld %d", &time, &start.pid) != 2)
            return false;
        start.time = time;
        position_ += line.size() + 1;
        return true;
    };
    return soon(read, seconds) ? std::optional(start) : std::nullopt;
}

TinyDecoder::TinyDecoder(TinyDecoder* shared) : starts_(appliance_.root() + "/run/starts") {
    const std::string player = appliance_.root() + "/bin/mjpeg_player";
    fs::remove(player);
    fs::create_symlink(benchProgram("first_instruction"), player);
    appliance_.setVariable("BENCH_STARTS", starts_.file());
    appliance_.setVariable("BENCH_BECOMES", benchProgram("tiny_player"));
    appliance_.setManual();
    for (int source = 0; source < 2; ++source) {
        const std::string name = source == 0 ? "Front door" : "Garage";
        if (shared != nullptr) {
            addresses_[source] = shared->addresses_[source];
            appliance_.addSource(name, {{"Address", addresses_[source]}, {"VideoSourceType", "mjpeg"}});
        } else {
            addresses_[source] = appliance_.addEncoder(name, {}, {{"VideoSourceType", "mjpeg"}}).address();
        }
    }
}

bool TinyDecoder::start(const std::vector<std::string>& arguments, bool detected) {
    appliance_.start(arguments);
    current_ = starts_.next(30);
    if (!current_ || !detected)
        return current_.has_value();
    queue_ = appliance::eventQueue(appliance_);
    appliance_.waitForSource(0);
    for (int i = 0; i < 2; ++i) {
        selectOther();
        if (!awaitSwitch())
            return false;
    }
    return true;
}

std::int64_t TinyDecoder::selectOther() {
    if (queue_ < 0)
        queue_ = appliance::eventQueue(appliance_);
    source_ = 1 - source_;
    const std::int64_t time = clockNs();
    appliance::sendRaw(queue_, EID_SELECT, source_);
    return time;
}

std::optional<Start> TinyDecoder::awaitSwitch() {
    const std::optional<Start> old = current_;
    current_ = starts_.next();
    if (!current_ || !old)
        return std::nullopt;
    const bool gone = soon([&] { return kill(old->pid, 0) != 0 && errno == ESRCH; }, 10);
    return gone ? current_ : std::nullopt;
}

std::optional<Start> TinyDecoder::awaitPlayer(double seconds) {
    current_ = starts_.next(seconds);
    return current_;
}

} // namespace bench
