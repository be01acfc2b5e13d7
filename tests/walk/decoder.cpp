#include "tests/walk/decoder.h"

#include "tests/appliance/event_sender.h"

#include "tests/walk/table.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <libcommon/clock.h>
#include <libcommon/display.h>
#include <libcommon/events.h>
#include <libcommon/params.h>
#include <sstream>
#include <unistd.h>

namespace walk {

namespace fs = std::filesystem;
using appliance::readFile;
using appliance::writeFile;

namespace {

constexpr std::size_t encoderCount = 4;
constexpr std::chrono::milliseconds stillness{40};
// A port on which nothing listens.
constexpr const char* closedAddress = "127.0.0.1:1";

std::vector<Source> sourcesOn(const std::vector<std::unique_ptr<ScriptedEncoder>>& encoders) {
    Source alpha{.name = "Alpha", .address = encoders[0]->address(), .displayTime = 1, .preset = ""};
    Source beta{.name = "Beta", .address = encoders[1]->address(), .displayTime = 2, .preset = "home"};
    Source gate = beta; // another preset of the same input
    gate.name = "Beta gate";
    gate.preset = "gate";
    gate.displayTime = 1;
    Source gamma{.name = "Gamma", .address = encoders[2]->address(), .displayTime = 60, .preset = ""};
    Source closed{.name = "Closed", .address = closedAddress, .displayTime = 1, .preset = ""};
    Source delta{.name = "Delta", .address = encoders[3]->address(), .inManual = false, .preset = ""};
    return {alpha, beta, gate, gamma, closed, delta};
}

std::string yesNo(bool value) {
    return value ? "yes" : "no";
}

} // namespace

Decoder::Decoder(const Start& start) {
    // This process is an appliance's client, too.
    setenv("APPLIANCE_ROOT", appliance_.root().c_str(), 1);
    setenv("LIBCOMMON_LOG", (appliance_.root() + "/var/log/walk.log").c_str(), 1);
    fs::create_directories(appliance_.root() + "/run/walk");
    const std::string player = appliance_.root() + "/bin/mjpeg_player";
    fs::remove(player);
    fs::create_symlink(WALK_PLAYER, player);
    for (const char* command : {"blankscreen", "resetrua"}) {
        appliance_.wrapProgram(command, std::string("echo \"") + command +
                                            " $*\" >>\"$APPLIANCE_ROOT/run/walk/shell.log\"");
    }
    for (std::size_t i = 0; i < encoderCount; ++i) {
        encoders_.push_back(std::make_unique<ScriptedEncoder>());
    }
    Settings settings;
    settings.mode = start.mode;
    settings.autoConnect = start.connects;
    settings.sources = sourcesOn(encoders_);
    history_.settings.push_back(settings);
    history_.bootTime = now() - gettimeusec();
    appliance_.setParameterFile(parameterText(settings, "?"));
    appliance_.start({"-v", "-v"});
}

std::string Decoder::parameterText(const Settings& settings, const std::string& connected) const {
    std::ostringstream text;
    text << "[Decoder]\nAutoConnect = " << yesNo(settings.autoConnect) << "\nSequenceMode = " << settings.mode
         << "\nAutoDetectTimeout = " << settings.detectTimeout
         << "\nShowDisconnectedMessage = " << yesNo(settings.showsMessage)
         << "\nVideoMode = pal\nConnected = " << connected
         << "\n[Alarm]\nEnabled = " << yesNo(settings.alarms) << "\nDisplayTime = " << settings.alarmTime
         << "\n[Buttons]\nVideoSelectEnabled = " << yesNo(settings.button)
         << "\n[Network.eth0]\nIPAddress = 127.0.0.1\n";
    for (const Source& source : settings.sources) {
        text << "[Encoder." << source.name << "]\nName = " << source.name << "\nAddress = " << source.address
             << "\nVideoSourceNumber = " << source.number << "\nVideoSourceType = " << source.type
             << "\nAutoEnabled = " << yesNo(source.inAuto) << "\nManualEnabled = " << yesNo(source.inManual)
             << "\nDisplayTime = " << source.displayTime << "\nResolution = default\nCompression = default\n";
        if (!source.preset.empty()) {
            text << "PTZ = " << source.preset << '\n';
        }
    }
    return text.str();
}

Line& Decoder::record(Kind kind) {
    Line& line = actions_.emplace_back();
    line.time = now();
    line.kind = kind;
    return line;
}

void Decoder::send(int id, int value1, int value2, const std::string& text) {
    ::Event event{};
    event.id = id;
    event.value1 = value1;
    event.value2 = value2;
    if (!text.empty()) {
        libcommon::setEventText(event, text.c_str());
        history_.alarmTexts[value2] = text;
    }
    Line& line = record(Kind::sent);
    line.id = id;
    line.value1 = value1;
    line.value2 = value2;
    // The library refuses to send what belongs to the supervisor; a stranger puts it into the queue without asking.
    const bool foreign = id == EID_CHILD || id == EID_BUTTON || id == EID_TIMEOUT || id == EID_BARRIER;
    const int queue = foreign ? appliance::eventQueue(appliance_) : -1;
    // It is refused while other senders are at work on a busy machine.
    EXPECT_TRUE(appliance::eventually([&] {
        return foreign ? appliance::sendRaw(queue, id, value1, value2) : sendEvent(&event) == 0;
    })) << std::strerror(errno);
}

void Decoder::press(char state) {
    record(Kind::pressed).number = state - '0';
    const int fd =
        open((appliance_.root() + "/proc/sys/dev/button_videoselect").c_str(), O_WRONLY | O_NONBLOCK);
    EXPECT_EQ(::write(fd, &state, 1), 1) << std::strerror(errno);
    close(fd);
}

// Writes the whole file at once, under the lock that the supervisor's own writes respect.
void Decoder::write(const Settings& settings) {
    const int version = static_cast<int>(history_.settings.size());
    history_.settings.push_back(settings);
    record(Kind::writeBegins).number = version;
    EXPECT_EQ(userOpenAndLockParamFile(0, 1), 0);
    const std::string connected = ParamWrapper(0, true)["Decoder.Connected"].toString();
    const std::string file = appliance_.parameterFile();
    writeFile(file + ".new", parameterText(settings, connected));
    fs::rename(file + ".new", file);
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    record(Kind::writeEnds).number = version;
}

void Decoder::setConnected(const std::string& value) {
    record(Kind::connectBegins).text = value;
    ParamWrapper(0, true)["Decoder.Connected"] = value.c_str();
    record(Kind::connectEnds).text = value;
}

void Decoder::plan(const std::string& words) {
    const std::string file = appliance_.root() + "/run/walk/plan";
    writeFile(file + ".new", words + '\n');
    fs::rename(file + ".new", file);
}

bool Decoder::isPlayer(int pid) const {
    const std::string name = readFile("/proc/" + std::to_string(pid) + "/comm");
    return name == "mjpeg_player\n";
}

void Decoder::kill(int pid, int signal) {
    if (isPlayer(pid)) {
        Line& line = record(Kind::killed);
        line.pid = pid;
        line.number = signal;
        ::kill(pid, signal);
    }
}

void Decoder::order(int pid, int status) {
    writeFile(appliance_.root() + "/run/walk/exit." + std::to_string(pid), std::to_string(status));
    if (isPlayer(pid)) {
        ::kill(pid, SIGUSR1); // the player notes its exit
    }
}

void Decoder::readLog() {
    std::ifstream file(appliance_.logFile(), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(log_.size()));
    std::stringstream more;
    more << file.rdbuf();
    std::string text = more.str();
    text.resize(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
    log_ += text;
    for (std::size_t at = 0; (at = text.find("State transition: ", at)) != std::string::npos;) {
        at = text.find(" -> ", at) + 4;
        state_ = text.substr(at, text.find('(', at) - at);
        ++transitions_;
        ++entered_[state_];
    }
}

const std::string& Decoder::state() {
    readLog();
    return state_;
}

std::size_t Decoder::timesIn(const std::string& state) const {
    const auto found = entered_.find(state);
    return found == entered_.end() ? 0 : found->second;
}

bool Decoder::await(const std::vector<std::string>& states, appliance::Seconds limit) {
    return appliance::eventually([&] { return std::ranges::find(states, state()) != states.end(); }, limit);
}

std::vector<int> Decoder::children() {
    const std::string pid = std::to_string(appliance_.supervisor().pid());
    std::istringstream words(readFile("/proc/" + pid + "/task/" + pid + "/children"));
    std::vector<int> found;
    for (int child = 0; words >> child;) {
        found.push_back(child);
    }
    return found;
}

int Decoder::newestPlayer() {
    int found = -1;
    for (const int pid : children()) {
        found = isPlayer(pid) ? std::max(found, pid) : found;
    }
    return found;
}

bool Decoder::sleeps(std::string& switches) {
    const std::string pid = std::to_string(appliance_.supervisor().pid());
    const std::string status = readFile("/proc/" + pid + "/task/" + pid + "/status");
    const std::size_t at = status.find("voluntary_ctxt_switches");
    if (status.find("State:\tS") == std::string::npos || at == std::string::npos) {
        return false;
    }
    switches = status.substr(at);
    return true;
}

void Decoder::look() {
    std::string before;
    std::string after;
    if (!isResting(state()) || !sleeps(before)) {
        return;
    }
    const std::size_t size = log_.size();
    appliance::pause(stillness);
    Look look;
    const Time time = now();
    for (int line = 0; line < 3; ++line) {
        look.osd[line] = libcommon::osdText(line);
    }
    const libcommon::LedState led = libcommon::ledState(2);
    look.colour = led.colour;
    look.pattern = led.pattern;
    look.currentSource = ParamWrapper(1, true)["Decoder.Info.CurrentSource"].toString();
    look.infoConnected = ParamWrapper(1, true)["Decoder.Info.Connected"].toString();
    look.children = children();
    // A shell command is still running.
    const bool onlyPlayers = std::ranges::all_of(look.children, [this](int pid) { return isPlayer(pid); });
    appliance::pause(stillness);
    readLog();
    if (onlyPlayers && sleeps(after) && before == after && log_.size() == size) {
        Line& line = record(Kind::looked);
        line.time = time;
        line.number = static_cast<int>(history_.looks.size());
        history_.looks.push_back(look);
    }
}

int Decoder::end() {
    history_.ended = now();
    return appliance_.stop(SIGINT);
}

History Decoder::history() {
    readLog();
    std::vector<Line> others = actions_;
    const std::string folder = appliance_.root() + "/run/walk/";
    for (Line& line : parsePlayers(readFile(folder + "players.log"))) {
        others.push_back(std::move(line));
    }
    for (const auto& encoder : encoders_) {
        for (const Line& line : encoder->lines()) {
            others.push_back(line);
        }
    }
    std::istringstream shell(readFile(folder + "shell.log"));
    for (std::string row; std::getline(shell, row);) {
        if (row.find("blankscreen") == 0) {
            Line line;
            line.kind = Kind::blanked;
            line.time = history_.ended; // the moment is not known
            others.push_back(line);
        }
    }
    history_.lines = merge(parseLog(log_, appliance_.supervisor().pid()), others);
    const std::string output = readFile(appliance_.root() + "/var/log/output");
    history_.timers = parseTimers(output);
    history_.launched = parseLaunches(output);
    return history_;
}

} // namespace walk
