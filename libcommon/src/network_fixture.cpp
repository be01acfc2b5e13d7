#include "libcommon/src/network_fixture.h"

#include <libcommon/interrupt.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace {

// ---- Process-wide state ----
// The appliance root of this process; made before main, removed after it.
class ApplianceRoot {
public:
    ApplianceRoot() {
        std::string pattern = std::filesystem::temp_directory_path() / "network-test-XXXXXX";
        path_ = mkdtemp(pattern.data());
        std::filesystem::create_directories(path_ / "etc/decoder");
        std::filesystem::create_directories(path_ / "run/decoder");
        setenv("APPLIANCE_ROOT", path_.c_str(), 1);
        setenv("LIBCOMMON_LOG", (path_ / "log").c_str(), 1);
    }
    ~ApplianceRoot() {
        if (owner_ != getpid())
            return; // a forked child ends, but the appliance stays
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ApplianceRoot(const ApplianceRoot&) = delete;
    ApplianceRoot& operator=(const ApplianceRoot&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    pid_t owner_ = getpid();
};
const ApplianceRoot applianceRoot;

// Where in the log the current test began.
std::size_t logStart = 0;

// How often each signal's handler ran. Written by the handler, read by any thread.
std::array<std::atomic<int>, 65> handled = {};
static_assert(std::atomic<int>::is_always_lock_free);

void countSignal(int signal) {
    ++handled.at(static_cast<std::size_t>(signal));
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

double now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

} // namespace

NetworkTest::NetworkTest() {
    pthread_sigmask(SIG_BLOCK, nullptr, &savedMask_);
    logStart = contentOf(applianceRoot.path() / "log").size();
    setParameters("");
    clearInterrupted();
}

NetworkTest::~NetworkTest() {
    pthread_sigmask(SIG_SETMASK, &savedMask_, nullptr);
}

void NetworkTest::setParameters(const std::string& text) {
    const auto file = applianceRoot.path() / "etc/decoder/decoder.conf";
    const auto written = applianceRoot.path() / "etc/decoder/new";
    std::ofstream(written) << text;
    std::filesystem::rename(written, file);
}

std::string NetworkTest::fileWith(const std::string& content) {
    static int files = 0;
    const auto file = applianceRoot.path() / ("file" + std::to_string(++files));
    std::ofstream(file) << content;
    return file;
}

std::string NetworkTest::log() {
    return contentOf(applianceRoot.path() / "log").substr(logStart);
}

Stopwatch::Stopwatch() : start_(now()) {}

double Stopwatch::milliseconds() const {
    return now() - start_;
}

HandlerCount::HandlerCount(int signal) : signal_(signal) {
    handled.at(static_cast<std::size_t>(signal)) = 0;
    struct sigaction action = {};
    action.sa_handler = countSignal;
    sigaction(signal, &action, &saved_);
}

HandlerCount::~HandlerCount() {
    sigaction(signal_, &saved_, nullptr);
}

int HandlerCount::value() const {
    return handled.at(static_cast<std::size_t>(signal_));
}

void blockSignal(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

bool isPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

SignalWhen::SignalWhen(int signal, std::function<void()> due) {
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved); // the thread never takes the signal itself
    thread_ = std::thread([this, signal, due = std::move(due)] {
        due();
        sentAt_ = now();
        kill(getpid(), signal);
    });
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

void SignalWhen::finish() {
    if (thread_.joinable())
        thread_.join();
}

double SignalWhen::sinceSent() {
    const double end = now();
    finish();
    return end - sentAt_;
}

double medianInterruption(const std::function<void(int)>& stageReached,
                          const std::function<void(int)>& operation) {
    constexpr int rounds = 5;
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        clearInterrupted();
        SignalWhen interruption(SIGUSR1, [&] { stageReached(round); });
        operation(round);
        times.push_back(interruption.sinceSent());
        EXPECT_TRUE(isInterrupted());
    }
    std::sort(times.begin(), times.end());
    return times[rounds / 2];
}

std::set<int> openDescriptors() {
    std::set<int> descriptors;
    constexpr int enough = 256;
    for (int fd = 0; fd < enough; ++fd)
        if (fcntl(fd, F_GETFD) >= 0)
            descriptors.insert(fd);
    return descriptors;
}
