#include "appliance/screen/monitor/terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>

using screen::Terminal;

namespace {

// A terminal, but none of a console. The real ones are in tests/boot.
class PseudoTerminal {
public:
    PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
        if (master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0)
            slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY);
    }
    ~PseudoTerminal() {
        close(slave_);
        close(master_);
    }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;
    int fd() const { return slave_; }

private:
    int master_;
    int slave_ = -1;
};

void expectAlwaysInFront(int fd) {
    Terminal terminal(fd);
    EXPECT_TRUE(terminal.inFront());
    terminal.leave();
    EXPECT_TRUE(terminal.inFront());
    terminal.comeBack();
    EXPECT_TRUE(terminal.inFront());
}

TEST(Terminal, WithoutAConsoleIsAlwaysInFront) {
    const int null = open("/dev/null", O_RDWR);
    expectAlwaysInFront(null);
    close(null);
    expectAlwaysInFront(-1);
}

TEST(Terminal, LeavesAnotherTerminalAsItIs) {
    const PseudoTerminal pseudo;
    ASSERT_GE(pseudo.fd(), 0);
    termios before{};
    ASSERT_EQ(tcgetattr(pseudo.fd(), &before), 0);
    {
        const Terminal terminal(pseudo.fd());
        termios now{};
        tcgetattr(pseudo.fd(), &now);
        EXPECT_EQ(now.c_lflag, before.c_lflag);
    }
    expectAlwaysInFront(pseudo.fd());
}

} // namespace
