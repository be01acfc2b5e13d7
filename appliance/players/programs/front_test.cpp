// The front of a player: what the process list shows, and what the player proper keeps.
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"

#include "tests/appliance/isolation.h"

#include <libcommon/clock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace player {
namespace {

namespace fs = std::filesystem;

using scripted::Server;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string procFile(pid_t pid, const char* name) {
    return contentsOf("/proc/" + std::to_string(pid) + "/" + name);
}

// Starts a program without a supervisor, after `prepare` in the new process.
pid_t startAlone(const std::string& program, std::vector<std::string> arguments,
                 const std::function<void()>& prepare) {
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    prepare();
    execv(program.c_str(), argv.data());
    _exit(99);
}

int statusOf(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Milliseconds of processor time that `PROGRAM --version` takes. Unlike the time on the clock, it hardly depends
// on what else runs on the machine.
double versionMs(const std::string& program) {
    const pid_t pid = startAlone(program, {"--version"},
                                 [] { dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); });
    int status = -1;
    rusage used{};
    EXPECT_EQ(wait4(pid, &status, 0, &used), pid);
    EXPECT_EQ(status, 0);
    const auto milliseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
    };
    return milliseconds(used.ru_utime) + milliseconds(used.ru_stime);
}

class Front : public testing::Test {
protected:
    Front() : isolated_(appliance::isolate()) {}

    pid_t start(const Server& server, std::vector<std::string> arguments) {
        arguments.insert(arguments.end(),
                         {"-n", "3", "-r", "60000", "-P", std::to_string(server.port()), "127.0.0.1"});
        return supervisor_.start(PLAYER, std::move(arguments));
    }

    // Reads the process list without a pause until the player asks its encoder. Returns the milliseconds from the
    // first to the last time that the list shows the text; 0: it never does.
    double visibleMs(pid_t pid, const Server& server, const std::string& text) {
        std::int64_t first = 0;
        std::int64_t last = 0;
        const std::int64_t until = gettimeusec() + 30'000'000;
        while (server.requests().empty() && gettimeusec() < until) {
            if (procFile(pid, "cmdline").find(text) == std::string::npos)
                continue;
            last = gettimeusec();
            first = first == 0 ? last : first;
        }
        EXPECT_EQ(server.requests().size(), 1U) << FakeSupervisor::log();
        EXPECT_THAT(procFile(pid, "cmdline"), Not(HasSubstr(text)));
        return static_cast<double>(last - first) / 1000;
    }

    const bool isolated_;
    FakeSupervisor supervisor_;
};

// The limit applies to the best of ten starts, because other programs may delay any single one. Hiding the
// password only after the libraries are loaded takes 40 ms at best.
TEST_F(Front, PasswordIsHiddenBeforeThePlayerLoads) {
    std::vector<double> times;
    for (int i = 0; i < 10; ++i) {
        const Server server({scripted::readRequest(), scripted::stall()});
        const pid_t pid = start(server, {"-u", "the-user", "-p", "the-password"});
        times.push_back(visibleMs(pid, server, "the-password"));
        kill(pid, SIGTERM);
        EXPECT_EQ(supervisor_.end(pid), 0);
    }
    std::sort(times.begin(), times.end());
    std::printf(
        "the process list showed the password for %.2f ms at best, %.2f in the median, %.2f at worst\n",
        times.front(), times[times.size() / 2], times.back());
    EXPECT_LT(times.front(), 5);
}

TEST_F(Front, SecretsAreHiddenInEveryFormOfTheirOptions) {
    const std::vector<std::vector<std::string>> forms{{"-u", "the-user", "-p", "the-password"},
                                                      {"-uthe-user", "-pthe-password"},
                                                      {"-vuthe-user", "-fpthe-password"},
                                                      {"-fu", "the-user", "-vp", "the-password"},
                                                      {"-t", "-p", "-u", "the-user", "-p", "the-password"}};
    for (const std::vector<std::string>& form : forms) {
        const Server server({scripted::readRequest(), scripted::stall()});
        const pid_t pid = start(server, form);
        ASSERT_TRUE(server.waitForRequests(1));
        EXPECT_THAT(procFile(pid, "cmdline"),
                    AllOf(Not(HasSubstr("the-user")), Not(HasSubstr("the-password")),
                          HasSubstr(std::string("-n\0003\0", 5)), HasSubstr("127.0.0.1")))
            << testing::PrintToString(form);
        EXPECT_THAT(procFile(pid, "environ"),
                    AllOf(Not(HasSubstr("the-user")), Not(HasSubstr("the-password"))));
    }
}

TEST_F(Front, ProcessKeepsItsNameAndItsSignals) {
    const Server server({scripted::readRequest(), scripted::stall()});
    const pid_t pid =
        startAlone(PLAYER, {"-A", "-r", "60000", "-P", std::to_string(server.port()), "127.0.0.1"}, [] {
            sigset_t blocked;
            sigemptyset(&blocked);
            sigaddset(&blocked, SIGUSR2);
            sigprocmask(SIG_SETMASK, &blocked, nullptr);
            std::signal(SIGUSR1, SIG_IGN);
        });
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(procFile(pid, "comm"), "mjpeg_player\n");
    EXPECT_THAT(procFile(pid, "cmdline"), testing::StartsWith(PLAYER));
    const std::string status = procFile(pid, "status");
    const auto maskOf = [&](const std::string& name) {
        const std::size_t at = status.find(name + ":\t");
        return at == std::string::npos ? 0 : std::stoull(status.substr(at + name.size() + 2), nullptr, 16);
    };
    EXPECT_NE(maskOf("SigBlk") & 1ULL << (SIGUSR2 - 1), 0U) << status;
    EXPECT_NE(maskOf("SigIgn") & 1ULL << (SIGUSR1 - 1), 0U) << status;
    kill(pid, SIGTERM);
    EXPECT_EQ(statusOf(pid), 0);
}

TEST_F(Front, StandardDescriptorsMayBeClosed) {
    EXPECT_EQ(statusOf(startAlone(PLAYER, {"-m", "secam", "127.0.0.1"},
                                  [] {
                                      for (int fd = 0; fd < 3; ++fd)
                                          close(fd);
                                  })),
              2);
}

TEST_F(Front, WithoutThePlayerProperTheStatusIsThirteen) {
    const fs::path folder = fs::path(FakeSupervisor::root()) / "elsewhere";
    fs::create_directories(folder);
    fs::copy_file(PLAYER, folder / "mjpeg_player", fs::copy_options::overwrite_existing);
    const std::string messages = FakeSupervisor::root() + "/messages";
    EXPECT_EQ(statusOf(startAlone(folder / "mjpeg_player", {"-p", "the-password", "127.0.0.1"},
                                  [&] {
                                      dup2(open(messages.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600),
                                           STDERR_FILENO);
                                  })),
              13);
    EXPECT_THAT(contentsOf(messages),
                AllOf(testing::StartsWith("mjpeg_player: "), HasSubstr("No such file or directory"),
                      Not(HasSubstr("the-password"))));
}

TEST_F(Front, CostsHardlyAnyTime) {
    std::vector<double> with;
    std::vector<double> without;
    for (int i = 0; i < 21; ++i) {
        with.push_back(versionMs(PLAYER));
        without.push_back(versionMs(PLAYER_PROPER));
    }
    std::sort(with.begin(), with.end());
    std::sort(without.begin(), without.end());
    const std::size_t middle = with.size() / 2;
    std::printf("--version: %.2f ms of processor time with the front, %.2f ms without it (medians)\n",
                with[middle], without[middle]);
    EXPECT_LT(with[middle], without[middle] + 5);
}

} // namespace
} // namespace player
