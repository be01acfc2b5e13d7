#include "tests/faults/small_decoder.h"

#include "tests/appliance/isolation.h"
#include "tests/appliance/process.h"
#include "tests/faults/tracing/tracer.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {

namespace {

namespace fs = std::filesystem;
using appliance::eventually;
using appliance::readFile;
using appliance::Seconds;
using appliance::writeFile;

constexpr const char* names[] = {"Alpha", "Beta"};
constexpr const char* playing = "MANUAL_WAIT_FOR_NEW_SELECTION";
constexpr int eventSelect = 11;
constexpr double patience =
    25; // for a step on a busy machine, the longest sleep of the state machine included

bool asks(const std::string& request, const std::string& path) {
    return request.find("GET " + path) == 0;
}

std::string answer(const std::string& request) {
    if (asks(request, "/vexo-cgi/mjpg/video.cgi")) {
        return scripted::reply("200 OK", "a picture");
    }
    if (request.find("group=Brand.ProdFullName") != std::string::npos) {
        return scripted::reply("200 OK", "Brand.ProdFullName=Scripted\n");
    }
    return scripted::reply("404 Not Found", "");
}

std::unique_ptr<scripted::Server> makeEncoder() {
    using namespace scripted;
    return std::make_unique<Server>(Script{readRequest(), scripted::answer(answer), scripted::close()});
}

// ".NAME.PID.TID" and ".NAME.new": somebody was writing it.
bool isUnfinished(const fs::path& path) {
    const std::string name = path.filename();
    return name.starts_with('.') && !name.ends_with(".lock") &&
           (name.ends_with(".new") || name.find('.', 1) != std::string::npos);
}

} // namespace

bool canRunHere() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(Traced::possible() && appliance::isolate() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

SmallDecoder::SmallDecoder() {
    makeRoot();
    for (int i = 0; i < 2; ++i) {
        encoders_.push_back(makeEncoder());
    }
    writeParameters();
}

SmallDecoder::~SmallDecoder() {
    for (const std::string& process : appliance::processesUnder(root_)) {
        ::kill(std::stoi(process), SIGKILL);
    }
    std::error_code error;
    fs::remove_all(root_, error);
}

void SmallDecoder::makeRoot() {
    std::string base = fs::temp_directory_path() / "small decoder-XXXXXX";
    if (mkdtemp(base.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    root_ = base;
    for (const char* folder : {"etc/decoder", "run/decoder", "var/tmp", "var/log", "bin", "proc/sys/dev"}) {
        fs::create_directories(fs::path(root_) / folder);
    }
    mkfifo(file("/proc/sys/dev/button_videoselect").c_str(), 0600);
    fs::create_symlink(TINY_PLAYER, file("/bin/mjpeg_player"));
    for (const char* command : {"/bin/blankscreen", "/bin/resetrua"}) {
        fs::create_symlink("/bin/true", file(command));
    }
}

void SmallDecoder::writeParameters() {
    std::string text = "[Decoder]\nAutoConnect = yes\nSequenceMode = manual\nAutoDetectTimeout = 5\n"
                       "ShowDisconnectedMessage = yes\nVideoMode = pal\n[Alarm]\nEnabled = yes\n"
                       "DisplayTime = 1\n[Buttons]\nVideoSelectEnabled = yes\n[Network.eth0]\n"
                       "IPAddress = 127.0.0.1\n";
    for (int i = 0; i < 2; ++i) {
        text += "[Encoder." + std::string(names[i]) + "]\nName = " + names[i] +
                "\nAddress = 127.0.0.1:" + std::to_string(encoders_[static_cast<std::size_t>(i)]->port()) +
                "\nVideoSourceNumber = 1\nVideoSourceType = mjpeg\nAutoEnabled = yes\nManualEnabled = yes\n"
                "DisplayTime = 600\nResolution = default\nCompression = default\n";
    }
    writeFile(parameterFile(), text);
}

std::vector<std::string> SmallDecoder::command() const {
    return {std::string(HOUSE_PROGRAMS) + "/skelmor", "-v", "-v"};
}

std::map<std::string, std::string> SmallDecoder::environment() const {
    return {{"APPLIANCE_ROOT", root_}, {"LIBCOMMON_LOG", logFile()}, {"PATH", root_ + "/bin:/usr/bin:/bin"}};
}

std::string SmallDecoder::log() const {
    return readFile(logFile());
}

std::string SmallDecoder::state() const {
    const std::string all = log();
    const std::size_t line = all.rfind("State transition: ");
    const std::size_t arrow = line == std::string::npos ? line : all.find(" -> ", line);
    if (arrow == std::string::npos) {
        return "";
    }
    const std::size_t name = arrow + 4;
    return all.substr(name, all.find('(', name) - name);
}

bool SmallDecoder::plays(int source, double seconds) const {
    return eventually([&] { return currentSource() == source && state() == playing; }, Seconds(seconds));
}

int SmallDecoder::currentSource() const {
    const std::string text = readFile(file("/run/decoder/info.conf"));
    const std::size_t at = text.find("CurrentSource");
    const std::size_t equals = at == std::string::npos ? at : text.find('=', at);
    return equals == std::string::npos ? -1 : std::atoi(text.c_str() + equals + 1);
}

int SmallDecoder::queue() const {
    const std::string record = readFile(file("/run/decoder/events.id")); // "ID PID STAMP"
    return record.empty() ? -1 : std::atoi(record.c_str());
}

bool SmallDecoder::send(int event, int value1, int value2) const {
    struct {
        long type = 1;
        std::int32_t words[13]{};
    } message;
    message.words[0] = event;
    message.words[1] = value1;
    message.words[2] = value2;
    return msgsnd(queue(), &message, sizeof message.words, IPC_NOWAIT) == 0;
}

void SmallDecoder::press(char state) const {
    const int fd = open(file("/proc/sys/dev/button_videoselect").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) {
        (void)!write(fd, &state, 1);
        close(fd);
    }
}

bool SmallDecoder::hasBothSources() const {
    const std::string text = readFile(parameterFile());
    return text.find("[Encoder.Alpha]\n") != std::string::npos &&
           text.find("[Encoder.Beta]\n") != std::string::npos && text.ends_with("Compression = default\n");
}

bool SmallDecoder::Leftovers::none() const {
    return processes.empty() && queues.empty() && barriers.empty() && unfinished.empty() && !semaphores;
}

std::string SmallDecoder::Leftovers::text() const {
    std::string text = semaphores ? " more than one set of semaphores" : "";
    for (const auto* list : {&processes, &queues, &barriers, &unfinished}) {
        for (const std::string& one : *list) {
            text += ' ' + one;
        }
    }
    return text;
}

SmallDecoder::Leftovers SmallDecoder::leftovers() const {
    Leftovers found;
    eventually([this] { return appliance::processesUnder(root_).empty(); }, Seconds(3));
    found.processes = appliance::processesUnder(root_);
    found.queues = appliance::queues();
    found.semaphores = appliance::semaphoreSets().size() > 1;
    for (const auto& entry : fs::directory_iterator(file("/var/tmp"))) {
        found.barriers.push_back(entry.path().filename());
    }
    for (const char* folder : {"/run/decoder", "/etc/decoder"}) {
        for (const auto& entry : fs::recursive_directory_iterator(file(folder))) {
            if (isUnfinished(entry.path())) {
                found.unfinished.push_back(entry.path().string().substr(root_.size()));
            }
        }
    }
    return found;
}

FreeRun::FreeRun(const SmallDecoder& decoder) {
    std::map<std::string, std::string> changes = decoder.environment();
    std::vector<std::string> words = decoder.command();
    pid_ = fork();
    if (pid_ != 0) {
        return;
    }
    for (const auto& [name, value] : changes) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int output = open(decoder.output().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    _exit(127);
}

FreeRun::~FreeRun() {
    if (running()) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool FreeRun::running() {
    if (status_ == -1 && waitpid(pid_, &status_, WNOHANG) != pid_) {
        status_ = -1;
        return true;
    }
    return false;
}

int FreeRun::end(int signal, double seconds) {
    if (running()) {
        ::kill(pid_, signal);
    }
    eventually([this] { return !running(); }, Seconds(seconds));
    return status_;
}

std::string nextStartFails(const SmallDecoder& decoder) {
    std::error_code error;
    fs::rename(decoder.logFile(), decoder.logFile() + ".before", error);
    FreeRun next(decoder);
    if (!decoder.plays(0, patience)) {
        return "the next start does not play, its state is " + decoder.state();
    }
    if (!decoder.send(eventSelect, 1) || !decoder.plays(1, patience)) {
        return "the next start does not show the other source";
    }
    if (const int status = next.end(SIGINT, patience); status != 0) {
        return "the next start does not end: " + std::to_string(status);
    }
    SmallDecoder::Leftovers left = decoder.leftovers();
    left.barriers.clear(); // those with a queue show as queues
    return left.none() ? "" : "after the next start there is" + left.text();
}

} // namespace faults
