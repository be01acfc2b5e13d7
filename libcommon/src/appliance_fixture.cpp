#include "libcommon/src/appliance_fixture.h"

#include <libcommon/sweep.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The library reads its root once per process, so all tests of a process share it.
const std::string& root() {
    static const std::string& path = *[] {
        std::string name = (fs::temp_directory_path() / "libcommon-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            std::abort();
        setenv("APPLIANCE_ROOT", name.c_str(), 1);
        setenv("LIBCOMMON_LOG", (name + "/log").c_str(), 1);
        return new std::string(name);
    }();
    return path;
}

} // namespace

ApplianceTest::ApplianceTest() {
    fs::create_directories(root());
}

ApplianceTest::~ApplianceTest() {
    sweep();
    fs::remove_all(root());
}

int ApplianceTest::sweep() {
    libcommon::Sweep done;
    return libcommon::sweep(done);
}

std::string ApplianceTest::file(const std::string& path) {
    return root() + path;
}

std::string ApplianceTest::parameterFile(int fileId) {
    return file(fileId == 0 ? "/etc/decoder/decoder.conf" : "/run/decoder/info.conf");
}

void ApplianceTest::write(const std::string& path, std::string_view text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string ApplianceTest::read(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool ApplianceTest::exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

std::vector<std::string> ApplianceTest::entries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string ApplianceTest::log() {
    return exists(file("/log")) ? read(file("/log")) : "";
}

std::size_t ApplianceTest::logCount(const std::string& text) {
    std::istringstream lines(log());
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.find(text) != std::string::npos ? 1 : 0;
    return count;
}

void ApplianceTest::clearLog() {
    fs::remove(file("/log"));
}

pid_t ApplianceTest::start(const std::function<int()>& act) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(act());
    }
    return child;
}

int ApplianceTest::finish(pid_t child) {
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return 255;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

int ApplianceTest::inChild(const std::function<int()>& act) {
    return finish(start(act));
}

int ApplianceTest::asUser(uid_t user, gid_t group, const std::vector<std::string>& openFolders,
                          const std::function<int()>& act) {
    for (const std::string& folder : openFolders)
        fs::permissions(folder, fs::perms::all);
    return inChild([&] {
        if (setgroups(0, nullptr) != 0 || setresgid(group, group, group) != 0 ||
            setresuid(user, user, user) != 0)
            return 99;
        return act();
    });
}

std::vector<int> ApplianceTest::inChildren(int count, const std::function<int(int)>& act) {
    const Signpost begin;
    std::vector<pid_t> children;
    children.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        children.push_back(start([&] {
            begin.await();
            return act(i);
        }));
    for (int i = 0; i < count; ++i)
        begin.reach();
    std::vector<int> results;
    results.reserve(children.size());
    for (const pid_t child : children)
        results.push_back(finish(child));
    return results;
}

bool ApplianceTest::waitsForLock(pid_t child, const std::string& lock) {
    for (int i = 0; i < 10000; ++i) {
        std::error_code error;
        for (const auto& fd : fs::directory_iterator("/proc/" + std::to_string(child) + "/fd", error))
            if (fs::read_symlink(fd, error) == lock)
                return true;
        usleep(1000);
    }
    return false;
}

Signpost::Signpost() {
    if (pipe(ends_) != 0)
        std::abort();
}

Signpost::~Signpost() {
    close(ends_[0]);
    close(ends_[1]);
}

void Signpost::reach() const {
    if (::write(ends_[1], "x", 1) != 1)
        std::abort();
}

void Signpost::await() const {
    char byte = 0;
    if (::read(ends_[0], &byte, 1) != 1)
        std::abort();
}

bool Signpost::isReached() const {
    pollfd end{.fd = ends_[0], .events = POLLIN, .revents = 0};
    return poll(&end, 1, 0) == 1;
}
