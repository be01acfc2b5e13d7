#include "appliance/screen/monitor/terminal.h"

#include <libcommon/log.h>

#include <cerrno>
#include <cstring>
#include <linux/kd.h>
#include <linux/vt.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace screen {
namespace {

constexpr unsigned terminalsMajor = 4;
constexpr unsigned mostTerminals = 63; // larger numbers are serial lines

// The number of the virtual terminal that is open as fd; 0 if it is something else.
int terminalNumber(int fd) {
    struct stat about {};
    if (fstat(fd, &about) != 0 || !S_ISCHR(about.st_mode) || major(about.st_rdev) != terminalsMajor)
        return 0;
    const unsigned number = minor(about.st_rdev);
    return number <= mostTerminals ? static_cast<int>(number) : 0;
}

bool succeeded(int result, const char* what) {
    if (result >= 0)
        return true;
    logmsg(4, "The console's terminal: %s (errno=%d %s)", what, errno, std::strerror(errno));
    return false;
}

// Otherwise what was printed before shows for a moment when the display is given back.
void clear(int fd) {
    static const char text[] = "\033[2J\033[H\033[?25l";
    succeeded(static_cast<int>(write(fd, text, sizeof text - 1)), "it can't be cleared");
}

} // namespace

Terminal::Terminal(int fd) : fd_(fd), number_(terminalNumber(fd)) {
    if (number_ != 0 && !take())
        number_ = 0;
}

bool Terminal::take() {
    vt_stat state{};
    if (!succeeded(tcgetattr(fd_, &before_), "its settings can't be read") ||
        !succeeded(ioctl(fd_, VT_GETSTATE, &state), "its state can't be read"))
        return false;
    termios raw = before_;
    cfmakeraw(&raw);
    succeeded(tcsetattr(fd_, TCSANOW, &raw), "the echo can't be switched off");
    clear(fd_);
    succeeded(ioctl(fd_, KDSETMODE, KD_GRAPHICS), "its text can't be hidden");
    // The order matters: from VT_SETMODE on, signals tell the changes.
    vt_mode mode{};
    mode.mode = VT_PROCESS;
    mode.relsig = leaveSignal;
    mode.acqsig = returnSignal;
    if (!succeeded(ioctl(fd_, VT_SETMODE, &mode), "changes to other terminals can't be followed"))
        return false;
    succeeded(ioctl(fd_, VT_GETSTATE, &state), "its state can't be read");
    inFront_ = state.v_active == number_;
    return true;
}

Terminal::~Terminal() {
    if (number_ == 0)
        return;
    vt_mode mode{};
    mode.mode = VT_AUTO;
    succeeded(ioctl(fd_, VT_SETMODE, &mode), "its changes can't be left to the kernel");
    succeeded(ioctl(fd_, KDSETMODE, KD_TEXT), "its text can't be shown");
    tcsetattr(fd_, TCSAFLUSH, &before_);
}

void Terminal::leave() {
    if (number_ == 0)
        return;
    inFront_ = false;
    succeeded(ioctl(fd_, VT_RELDISP, 1), "it can't be left");
}

void Terminal::comeBack() {
    if (number_ == 0)
        return;
    inFront_ = true;
    succeeded(ioctl(fd_, VT_RELDISP, VT_ACKACQ), "it can't be taken back");
}

} // namespace screen
