// Each test runs in a process of its own, which loses its rights.
#include "appliance/input/confinement.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace input {
namespace {

TEST(InputConfinement, StartsNothingAndOpensNoSocket) {
    confine({.readable = {}, .device = {}, .network = false});
    char* arguments[] = {nullptr};
    EXPECT_EQ(execv("/bin/true", arguments), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST(InputConfinement, StartsNoProcessAndTouchesNone) {
    confine({.readable = {}, .device = {}, .network = true});
    EXPECT_EQ(fork(), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(kill(getppid(), SIGCONT), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST(InputConfinement, WithNetworkItHasSockets) {
    confine({.readable = {}, .device = {}, .network = true});
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST(InputConfinement, ReadsOnlyItsOwnFile) {
    if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 0)
        GTEST_SKIP() << "this kernel has no Landlock";
    confine({.readable = {"/etc/hostname"}, .device = {}, .network = false});
    const int own = open("/etc/hostname", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(own, 0);
    close(own);
    EXPECT_EQ(open("/etc/passwd", O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(open("/etc/hostname", O_RDWR | O_CLOEXEC), -1);
}

} // namespace
} // namespace input
