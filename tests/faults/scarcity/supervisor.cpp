// The supervisor as a subject.
#include "tests/appliance/process.h"
#include "tests/faults/scarcity/subject.h"

#include <csignal>
#include <filesystem>
#include <functional>
#include <sys/wait.h>

namespace faults {

namespace {

constexpr int eventAlarm = 8;
constexpr int eventConnected = 9;
constexpr int eventFlush = 10;
constexpr int eventSelect = 11;
constexpr int eventLock = 12;
constexpr int eventReconnect = 13;
// The longest way back to a picture: the player's five seconds, a lock's ten, sleeps after errors, a detection.
constexpr double recoveryLimit = 60;
constexpr double betweenTries = 8;

class Supervisor : public Subject {
public:
    Supervisor() {
        std::filesystem::remove(decoder_.file("/bin/mjpeg_player"));
        std::filesystem::create_symlink(FAULTS_PLAYER, decoder_.file("/bin/mjpeg_player"));
    }

    std::string root() const override { return decoder_.root(); }
    std::vector<std::string> command() const override { return decoder_.command(); }
    std::map<std::string, std::string> environment() const override { return decoder_.environment(); }
    std::string output() const override { return decoder_.output(); }
    std::string log() const override { return decoder_.log(); }

    std::string use(Traced& program) override {
        if (!shows(program, 0, true)) {
            return "it does not play at first: " + decoder_.state();
        }
        if (!shows(program, 1)) {
            return "it does not show the other source: " + decoder_.state();
        }
        decoder_.send(eventAlarm, 0);
        decoder_.send(eventConnected);
        decoder_.press('1');
        decoder_.send(eventFlush);
        if (!shows(program, 0)) {
            return "it does not show the first source again: " + decoder_.state();
        }
        decoder_.send(eventLock);
        appliance::pause(std::chrono::milliseconds(150));
        decoder_.send(eventReconnect);
        if (!shows(program, 1)) {
            return "it does not play after a lock: " + decoder_.state();
        }
        return "";
    }

    std::string end(Traced& program) override {
        kill(program.pid(), SIGINT);
        const std::optional<int> status = program.waitForEnd(25);
        if (!status || *status != 0) {
            return "it does not end with status 0";
        }
        SmallDecoder::Leftovers left = decoder_.leftovers();
        barriersLeft_ = left.barriers.size();
        return left.none() ? "" : "left behind:" + left.text();
    }

    bool mayEndItself(int status) const override {
        const std::string log = decoder_.log();
        if (!WIFEXITED(status)) {
            return false;
        }
        const bool noButton =
            log.find("Failed to start video select button thread") != std::string::npos ||
            appliance::readFile(decoder_.output()).find("Failed to open") != std::string::npos;
        const bool notLoaded = log.find("Started") == std::string::npos; // by the loader, before main
        return noButton || notLoaded;
    }

    std::string nextStartFails() override {
        if (!decoder_.hasBothSources()) {
            return "a source is lost";
        }
        return faults::nextStartFails(decoder_);
    }

private:
    // Whether it comes to show that source; it is asked again and again.
    bool shows(Traced& program, int source, bool byItself = false) {
        const double until = secondsNow() + recoveryLimit;
        if (byItself && decoder_.plays(source, betweenTries)) {
            return true;
        }
        while (secondsNow() < until && !program.waitForEnd(0)) {
            decoder_.send(eventReconnect);
            decoder_.send(eventSelect, source);
            if (plays(program, source)) {
                return true;
            }
        }
        return false;
    }

    bool plays(Traced& program, int source) const {
        const double until = secondsNow() + betweenTries;
        while (secondsNow() < until && !program.waitForEnd(0)) {
            if (decoder_.plays(source, 0.05)) {
                return true;
            }
        }
        return false;
    }

    SmallDecoder decoder_;
    std::size_t barriersLeft_ = 0;
};

} // namespace

std::unique_ptr<Subject> makeSubject(const std::string& name) {
    return name == "supervisor" ? std::make_unique<Supervisor>() : nullptr;
}

std::vector<std::string> subjectNames() {
    return {"supervisor"};
}

} // namespace faults
