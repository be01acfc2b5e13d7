#include "tests/appliance/appliance.h"

#include "tests/appliance/isolation.h"
#include "tests/support/screen_picture.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace appliance {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t shownLogLines = 80;

// How many appliances this test has now, and how many it has made. The last one to be destroyed
// looks for leftovers.
int alive = 0;
std::size_t made = 0;
constexpr const char* playerNames[] = {"mjpeg_player", "unicastplayer", "multicastplayer", "mpeg4player"};

std::string makeRoot() {
    // The path has a blank, so that a missing quotation mark is noticed.
    std::string base = fs::temp_directory_path() / "appliance test-XXXXXX";
    if (mkdtemp(base.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    for (const char* folder : {"etc/decoder", "run/decoder", "var/tmp", "var/log", "bin", "proc/sys/dev"}) {
        fs::create_directories(fs::path(base) / folder);
    }
    mkfifo((base + "/proc/sys/dev/button_videoselect").c_str(), 0600);
    for (const auto& program : fs::directory_iterator(HOUSE_PROGRAMS)) {
        fs::create_symlink(program.path(), fs::path(base) / "bin" / program.path().filename());
    }
    return base;
}

std::string endOf(const std::string& text, std::size_t lines) {
    std::size_t at = text.size();
    while (at > 0 && lines > 0) {
        at = text.rfind('\n', at - 1);
        if (at == std::string::npos) {
            return text;
        }
        --lines;
    }
    return text.substr(at);
}

bool beginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// The time of a log line, such as "2026-11-21T09:21:42.087944Z skelmor[20943] 6 Started", in seconds after
// midnight; negative when the line has no time.
double timeOfLine(const std::string& line) {
    int hours = 0;
    int minutes = 0;
    double seconds = 0;
    if (std::sscanf(line.c_str(), "%*d-%*d-%*dT%d:%d:%lf", &hours, &minutes, &seconds) != 3) {
        return -1;
    }
    return hours * 3600 + minutes * 60 + seconds;
}

} // namespace

std::string Appliance::program(const std::string& name) {
    return std::string(HOUSE_PROGRAMS) + '/' + name;
}

Appliance::Appliance()
    : root_((isolate(), makeRoot())),
      sections_{{"Decoder",
                 {{"AutoConnect", "yes"},
                  {"SequenceMode", "auto"},
                  // Long, for a busy machine: a detection that fails takes ten seconds more.
                  {"AutoDetectTimeout", "15"},
                  {"ShowDisconnectedMessage", "yes"},
                  {"VideoMode", "pal"}}},
                {"Alarm", {{"Enabled", "yes"}, {"DisplayTime", "3"}}},
                {"Buttons", {{"VideoSelectEnabled", "yes"}}},
                {"Network.eth0", {{"IPAddress", "127.0.0.1"}}}},
      store_(root_ + "/run/decoder/screen/frames") {
    ++alive;
    ++made;
}

Appliance::~Appliance() {
    --alive;
    if (supervisor_ && supervisor_->running()) {
        releasePlayers();
        supervisor_->signal(SIGCONT);
        EXPECT_EQ(stop(SIGINT), 0);
    }
    if (supervisor_) {
        reportLeftovers();
    }
    encoders_.clear();
    if (testing::Test::HasFailure()) {
        std::cout << "---- the end of the log of " << root_ << '\n'
                  << endOf(log(), shownLogLines) << "\n----\n";
    }
    fs::remove_all(root_);
}

Encoder& Appliance::add(std::unique_ptr<Encoder> encoder, const std::string& name, const Keys& keys) {
    Keys all = keys;
    all.emplace("Address", encoder->address());
    addSource(name, all);
    return *encoders_.emplace_back(std::move(encoder));
}

std::string Appliance::encoderLog() const {
    return root_ + "/var/log/encoder" + std::to_string(sources_) + ".log";
}

Encoder& Appliance::addEncoder(const std::string& name, const std::vector<std::string>& arguments,
                               const Keys& keys) {
    return add(std::make_unique<Encoder>(name, sources_, arguments, encoderLog()), name, keys);
}

Encoder& Appliance::addHost(const std::string& name, const std::vector<std::string>& arguments,
                            const Keys& keys) {
    if (!isolate()) {
        throw std::runtime_error("an encoder with the usual ports needs an isolated process");
    }
    const std::string host = "127.0.1." + std::to_string(sources_ + 1);
    return add(std::make_unique<Encoder>(name, sources_, arguments, encoderLog(), host), name, keys);
}

void Appliance::addSource(const std::string& name, const Keys& keys) {
    Keys all = keys;
    all.merge(Keys{{"VideoSourceNumber", "1"},
                   {"AutoEnabled", "yes"},
                   {"ManualEnabled", "yes"},
                   {"DisplayTime", "600"},
                   {"Resolution", "default"},
                   {"Compression", "default"}});
    sections_.emplace_back("Encoder." + name, all);
    ++sources_;
}

void Appliance::set(const std::string& name, const std::string& value) {
    const std::size_t dot = name.rfind('.');
    const std::string section = name.substr(0, dot);
    const auto found = std::ranges::find(sections_, section, &std::pair<std::string, Keys>::first);
    Keys& keys = found == sections_.end() ? sections_.emplace_back(section, Keys{}).second : found->second;
    keys[name.substr(dot + 1)] = value;
}

void Appliance::wrapProgram(const std::string& name, const std::string& script) {
    const std::string file = root_ + "/bin/" + name;
    fs::remove(file);
    writeFile(file, "#!/bin/sh\nREAL='" + program(name) + "'\n" + script + '\n');
    fs::permissions(file, fs::perms::owner_all);
}

std::map<std::string, std::string> Appliance::environment() const {
    std::map<std::string, std::string> all = variables_;
    all.merge(std::map<std::string, std::string>{
        {"APPLIANCE_ROOT", root_}, {"LIBCOMMON_LOG", logFile()}, {"PATH", root_ + "/bin:/usr/bin:/bin"}});
    return all;
}

std::string Appliance::parameterText() const {
    std::string text;
    for (const auto& [section, keys] : sections_) {
        text += '[' + section + "]\n";
        for (const auto& [key, value] : keys) {
            text.append(key).append(" = ").append(value).append("\n");
        }
    }
    return text;
}

// Held players wait to open a FIFO. They do not start another program to wait: for a moment that program would look
// like one more player.
void Appliance::holdPlayers() {
    mkfifo((root_ + "/run/hold").c_str(), 0600);
    for (const char* player : playerNames) {
        if (fs::is_symlink(root_ + "/bin/" + player)) {
            wrapProgram(player, "HOLD=\"$APPLIANCE_ROOT/run/hold\"\n"
                                "[ ! -p \"$HOLD\" ] || read -r _ <\"$HOLD\"\n"
                                "exec \"$REAL\" \"$@\"");
        }
    }
}

void Appliance::releasePlayers() {
    const std::string file = root_ + "/run/hold";
    const int hold = open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    fs::remove(file); // before the players that opened it read its end
    if (hold >= 0) {
        close(hold);
    }
}

void Appliance::start(const std::vector<std::string>& arguments) {
    if (!written_) {
        const std::optional<std::string> text = parameterFile_.value_or(parameterText());
        if (text) {
            writeFile(parameterFile(), *text);
        }
        written_ = true;
    }
    std::vector<std::string> all = starter_;
    all.push_back(program("skelmor"));
    all.insert(all.end(), arguments.begin(), arguments.end());
    supervisor_ = std::make_unique<Process>(all, environment(), root_ + "/var/log/output");
}

int Appliance::stop(int signal) {
    supervisor_->signal(signal);
    const std::optional<int> status = supervisor_->waitForEnd();
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

void Appliance::forgetQueues() {
    if (isolate()) {
        removeQueues();
    }
}

Finished Appliance::ctl(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all{program("decoderctl")};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::map<std::string, std::string> variables = environment();
    variables["LIBCOMMON_LOG"] = "stderr";
    return runToEnd(all, variables);
}

nlohmann::json Appliance::status() const {
    return nlohmann::json::parse(ctl({"status", "--json"}).output, nullptr, false);
}

std::string Appliance::sourceValue(int index, const std::string& key) const {
    std::istringstream lines(ctl({"source", std::to_string(index)}).output);
    for (std::string line; std::getline(lines, line);) {
        if (beginsWith(line, key + '=')) {
            return line.substr(key.size() + 1);
        }
    }
    return "(none)";
}

std::size_t Appliance::countInLog(const std::string& text) const {
    const std::string all = log();
    std::size_t count = 0;
    for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

std::vector<double> Appliance::timesInLog(const std::string& text) const {
    constexpr double day = 86400;
    std::vector<double> times;
    std::istringstream lines(log());
    double first = -1;
    for (std::string line; std::getline(lines, line);) {
        const double time = timeOfLine(line);
        first = first < 0 ? time : first;
        if (line.find(text) != std::string::npos) {
            times.push_back(time < first ? time - first + day : time - first);
        }
    }
    return times;
}

double Appliance::secondsInLog(const std::string& from, const std::string& to) const {
    const std::vector<double> begin = timesInLog(from);
    const std::vector<double> end = timesInLog(to);
    return begin.empty() || end.empty() ? -1 : end[0] - begin[0];
}

bool Appliance::waitForLog(const std::string& text, std::size_t times, Seconds limit) const {
    return eventually([&] { return countInLog(text) >= times; }, limit);
}

std::string Appliance::state() const {
    const std::string all = log();
    const std::size_t line = all.rfind("State transition: ");
    const std::size_t arrow = line == std::string::npos ? line : all.find(" -> ", line);
    if (arrow == std::string::npos) {
        return "";
    }
    const std::size_t name = arrow + 4;
    return all.substr(name, all.find('(', name) - name);
}

bool Appliance::waitForState(const std::string& name, Seconds limit) const {
    return eventually([&] { return state() == name; }, limit);
}

std::optional<FrameMark> Appliance::mark() {
    screen::Frame frame;
    if (!store_.newest(frame)) {
        return std::nullopt;
    }
    return screen::markIn(frame);
}

int Appliance::playerPid() {
    const screen::FrameInfo info = store_.newestInfo();
    return info.number == 0 ? -1 : info.pid;
}

bool Appliance::showsMoving(int source, Seconds limit) {
    constexpr std::size_t wanted = 3;
    const std::uint64_t before = store_.newestInfo().number;
    std::set<int> counters;
    return eventually(
        [&] {
            const std::uint64_t number = store_.newestInfo().number;
            const std::optional<FrameMark> now = mark();
            if (number > before && now && now->source == source) {
                counters.insert(now->counter);
            }
            return counters.size() >= wanted;
        },
        limit);
}

std::string Appliance::text(int line) const {
    const nlohmann::json now = status();
    // Without a running supervisor decoderctl reports an error instead.
    return now.contains("osd") ? now["osd"].at(static_cast<std::size_t>(line)).get<std::string>() : "";
}

bool Appliance::waitForText(int line, const std::string& part, Seconds limit) const {
    return eventually([&] { return text(line).find(part) != std::string::npos; }, limit);
}

int Appliance::currentSource() const {
    const nlohmann::json now = status();
    return now.contains("currentSource") ? now["currentSource"].get<int>() : -2;
}

bool Appliance::waitForSource(int index, Seconds limit) const {
    return eventually([&] { return currentSource() == index; }, limit);
}

std::vector<int> Appliance::players() const {
    std::vector<int> found;
    for (const std::string& process : processesUnder(root_)) {
        const std::string name = process.substr(process.find(' ') + 1);
        // The kernel keeps fifteen characters of a name.
        if (std::ranges::any_of(playerNames, [&](const char* player) {
                return beginsWith(name, std::string(player).substr(0, 15));
            })) {
            found.push_back(std::stoi(process));
        }
    }
    std::ranges::sort(found);
    return found;
}

std::string Appliance::playerName() {
    const std::string pid = std::to_string(playerPid());
    const std::string name = readFile("/proc/" + pid + "/comm");
    return name.substr(0, name.find('\n'));
}

void Appliance::reportLeftovers() {
    // The process that was started last may still be ending.
    eventually([&] { return processesUnder(root_).empty(); }, Seconds(5));
    for (const std::string& process : processesUnder(root_)) {
        ADD_FAILURE() << "left behind: process " << process;
        kill(std::stoi(process), SIGKILL);
    }
    for (const auto& file : fs::directory_iterator(root_ + "/var/tmp")) {
        ADD_FAILURE() << "left behind: " << file.path();
    }
    if (!isolate() || alive > 0) {
        return;
    }
    for (const std::string& queue : queues()) {
        ADD_FAILURE() << "left behind: " << queue;
    }
    EXPECT_LE(semaphoreSets().size(), made)
        << "each appliance keeps one set after its supervisor ends, for the next start";
    removeSemaphoreSets();
}

} // namespace appliance
