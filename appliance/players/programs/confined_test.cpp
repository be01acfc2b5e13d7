// Players give up their rights: one that plays, and one that was taken over and tries what it must not do.
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"

#include "tests/appliance/isolation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace player {
namespace {

namespace fs = std::filesystem;

using scripted::Server;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

int landlockVersion() {
    return static_cast<int>(
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

std::string statusOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class ConfinedPlayer : public testing::Test {
protected:
    ConfinedPlayer() : isolated_(appliance::isolate()) {
        for (const char* path :
             {"/etc/decoder/panel.accounts", "/etc/decoder/panel.tokens", "/etc/decoder/panel-key.pem",
              "/run/decoder/info.conf", "/run/decoder/panel/link", "/run/decoder/source/7/Reason",
              "/run/decoder/skelmor.lock", "/run/decoder/display/0", "/var/tmp/barrier.1",
              "/proc/sys/dev/button_videoselect"})
            put(path, "[Some]\nText = secret\n");
        put("/etc/decoder/decoder.conf", "[Encoder.Yard]\nPassword = secret\n");
    }
    static void put(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(FakeSupervisor::root() + path).parent_path());
        std::ofstream(FakeSupervisor::root() + path) << text;
    }
    static std::vector<std::string> arguments(const Server& server) {
        return {"-m",       "pal", "-o", "tv", "-n", "3", "-r", "10000", "-P", std::to_string(server.port()),
                "127.0.0.1"};
    }

    const bool isolated_;
    FakeSupervisor supervisor_;
};

TEST_F(ConfinedPlayer, ThatWasTakenOverGetsNowhere) {
    if (landlockVersion() < 1)
        GTEST_SKIP() << "this kernel has no Landlock";
    const Server encoder({scripted::stall()});
    const Server panel({scripted::stall()});
    const int other = msgget(IPC_PRIVATE, 0600);
    setenv("TRY_QUEUE", std::to_string(other).c_str(), 1);
    constexpr int withPorts = 4;
    if (landlockVersion() >= withPorts)
        setenv("TRY_PORT", std::to_string(panel.port()).c_str(), 1);
    const pid_t pid = supervisor_.start(HIJACKED_PLAYER, arguments(encoder));
    EXPECT_EQ(supervisor_.end(pid), 0) << FakeSupervisor::log();
    EXPECT_THAT(FakeSupervisor::log(),
                AllOf(Not(HasSubstr("not refused")), Not(HasSubstr("refused, but needed"))));
    EXPECT_TRUE(supervisor_.arrived(pid, 0)) << "it announced itself";
    msgctl(other, IPC_RMID, nullptr);
}

// The other tests of the players and of whole decoders run under the same confinement, with every kind of stream.
TEST_F(ConfinedPlayer, PlaysWithoutRightsInEveryThread) {
    const Server encoder(pictureStream(3, 500));
    const pid_t pid = supervisor_.start(PLAYER, arguments(encoder));
    ASSERT_TRUE(supervisor_.letShow(pid)) << FakeSupervisor::log();
    int threads = 0;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream file(task.path() / "status");
        const std::string status{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        EXPECT_THAT(status, AllOf(HasSubstr("NoNewPrivs:\t1\n"), HasSubstr("Seccomp:\t2\n")));
        ++threads;
    }
    EXPECT_GT(threads, 1);
    kill(pid, SIGTERM);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(ConfinedPlayer, KeepsItsRightsWhenTheParameterSaysSo) {
    FakeSupervisor::setParameters("[Player]\nConfined = no\n");
    const Server encoder(pictureStream(3, 500));
    const pid_t pid = supervisor_.start(PLAYER, arguments(encoder));
    ASSERT_TRUE(supervisor_.letShow(pid)) << FakeSupervisor::log();
    EXPECT_THAT(statusOf(pid), HasSubstr("Seccomp:\t0\n"));
    kill(pid, SIGTERM);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

constexpr long filterCalls = -1; // both calls that install a filter

// Makes this thread's kernel older, or its administrator stricter: these calls fail with this error, for the threads and
// processes that it starts, too.
void refuse(const std::vector<long>& calls, int error) {
    const std::uint32_t refusal = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
    const auto number = [](long call) { return static_cast<std::uint32_t>(call); };
    std::vector<sock_filter> filter{{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)}};
    for (const long call : calls) {
        filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, number(call == filterCalls ? SYS_seccomp : call)});
        filter.push_back({BPF_RET | BPF_K, 0, 0, refusal});
        if (call != filterCalls)
            continue;
        filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 4, number(SYS_prctl)});
        filter.push_back({BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, args)});
        filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, PR_SET_SECCOMP});
        filter.push_back({BPF_RET | BPF_K, 0, 0, refusal});
        filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});
    }
    filter.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

struct LesserKernel {
    const char* name;
    std::vector<long> refused;
    int error;
    const char* files; // what the log says about files, and about system calls; "" when they are confined
    const char* calls;
};

std::string saidAbout(const LesserKernel& kernel) {
    constexpr int withPorts = 4;
    const std::string files = kernel.files;
    const std::string ports = landlockVersion() < withPorts ? "the kernel can't" : files;
    std::string said;
    for (const auto& [what, why] : {std::pair<std::string, std::string>{"files", files},
                                    {"TCP ports", ports},
                                    {"system calls", kernel.calls}})
        if (!why.empty())
            said.append(said.empty() ? "" : ", ").append(what).append(" (").append(why).append(")");
    return said;
}

class ConfinedOnALesserKernel : public ConfinedPlayer, public testing::WithParamInterface<LesserKernel> {
protected:
    // In a thread of its own, so that only the player gets the filter. The player ends with the thread that started it.
    void playsOnce(const Server& encoder) {
        std::thread([&] {
            refuse(GetParam().refused, GetParam().error);
            const pid_t pid = supervisor_.start(PLAYER, arguments(encoder));
            EXPECT_TRUE(supervisor_.letShow(pid)) << FakeSupervisor::log();
            kill(pid, SIGTERM);
            EXPECT_EQ(supervisor_.end(pid), 0);
        }).join();
    }
};

TEST_P(ConfinedOnALesserKernel, PlaysAndSaysItOnce) {
    if (landlockVersion() < 1)
        GTEST_SKIP() << "this kernel is lesser already: it has no Landlock";
    const std::size_t before = FakeSupervisor::log().size();
    const Server encoder(pictureStream(3, 500));
    for (int start = 0; start < 3; ++start)
        playsOnce(encoder);
    const std::string log = FakeSupervisor::log().substr(before);
    const std::string line = "Players are not confined in everything here: " + saidAbout(GetParam()) + '\n';
    const std::size_t first = log.find(line);
    ASSERT_NE(first, std::string::npos) << log << "\nexpected: " << line;
    EXPECT_EQ(log.find("not confined", first + line.size()), std::string::npos) << log;
}

constexpr const char* unknown = "the kernel can't";
constexpr const char* failed = "failed";

INSTANTIATE_TEST_SUITE_P(
    Kernels, ConfinedOnALesserKernel,
    testing::Values(LesserKernel{"WithoutLandlock", {SYS_landlock_create_ruleset}, ENOSYS, unknown, ""},
                    LesserKernel{"LandlockOff", {SYS_landlock_create_ruleset}, EOPNOTSUPP, unknown, ""},
                    LesserKernel{"LandlockRefused", {SYS_landlock_restrict_self}, EPERM, failed, ""},
                    LesserKernel{"WithoutFilters", {filterCalls}, EINVAL, "", unknown},
                    LesserKernel{"FiltersRefused", {filterCalls}, EPERM, "", failed},
                    LesserKernel{
                        "WithoutBoth", {SYS_landlock_create_ruleset, filterCalls}, ENOSYS, unknown, unknown}),
    [](const auto& kernel) { return std::string(kernel.param.name); });

} // namespace
} // namespace player
