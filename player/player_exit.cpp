#include "player/player_exit.h"

#include "player/shell_command.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>
#include <libcommon/status.h>

namespace {

// Values of "ErrorCode" for players that were killed or stopped; an exit code is written as it is.
constexpr int errorKilledBySignal = 29;
constexpr int errorStopped = 30;

// Exit codes of the players.
constexpr int exitOk = 0;
constexpr int exitDmaLock = 10;
constexpr int exitNotConnected = 11;
constexpr int exitEndOfStream = 14;
constexpr int exitStalled = 23;

void resetVideoOutput() {
    const bool pal = recorded::Parameters(0, true)["Decoder.VideoMode"] == "pal";
    runShellCommand(pal ? "resetrua pal" : "resetrua ntsc");
}

void actOnExitCode(int code) {
    switch (code) {
    case exitOk:
    case 40:
    case 50:
        break;
    case exitDmaLock:
        logmsg(6, "resetting and forcing genlock due to RUA DMA LOCK");
        resetVideoOutput();
        break;
    case exitNotConnected:
        logmsg(6, "Player failed to connect.");
        break;
    case exitEndOfStream:
    case exitStalled:
        logmsg(6, "Player exited due to end of stream.");
        break;
    default:
        logmsg(6, "Player exited during playing. errorcode: %d", code);
        break;
    }
}

void handleAbnormalEnd(int sourceIndex, int waitStatus) {
    if ((waitStatus & 0xff) == 0x7f) {
        status(sourceIndex, "ErrorCode", errorStopped);
        logmsg(3, "Player crashed by an unknown reason. status=%d", waitStatus);
    } else {
        status(sourceIndex, "ErrorCode", errorKilledBySignal);
        logmsg(3, "Player crashed due to an uncaught signal. signo=%d", waitStatus & 0x7f);
    }
}

} // namespace

void handleError(int sourceIndex, const Event* event) {
    if (event->id != EID_CHILD) {
        logmsg(3, "handleError called with illegal event type");
        return;
    }
    if (sourceIndex == -1) {
        logmsg(3, "handleError called with -1 sourceID");
        return;
    }
    // The bits are read directly: the W* macros treat a stopped child's status differently.
    const int waitStatus = event->value2;
    if ((waitStatus & 0x7f) != 0) {
        handleAbnormalEnd(sourceIndex, waitStatus);
        return;
    }
    const int code = (waitStatus >> 8) & 0xff;
    status(sourceIndex, "ErrorCode", code);
    logmsg(7, "Player existed with code: %d", code); // kept: "existed"
    actOnExitCode(code);
}

int blankscreen() {
    runShellCommand("blankscreen");
    return 0;
}
