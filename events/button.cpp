#include "events/button.h"

#include "process/paths.h"
#include "process/signal_mask.h"
#include "process/trace_output.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* buttonFile = "/proc/sys/dev/button_videoselect";
constexpr int shortPress = 1;
constexpr int held = 2;
constexpr std::int64_t waited = 1000; // microseconds; a read that took less did not wait

void sendButton(bool hold) {
    Event event{};
    event.id = EID_BUTTON;
    event.value2 = hold ? 1 : 0;
    sendEvent(&event);
}

struct Reading {
    int value;   // the byte as a digit; -48 when nothing could be read
    bool atOnce; // it may be the same state again: read the file again only after a pause
};

Reading readFile(int fd) {
    const std::int64_t begin = gettimeusec();
    char byte = 0;
    const bool got = read(fd, &byte, 1) == 1;
    // The next read must see the current state. A FIFO can't be rewound, and reports each press once.
    const bool reportsOnce = lseek(fd, 0, SEEK_SET) == -1;
    const bool didWait = gettimeusec() - begin >= waited;
    return {byte - '0', !didWait && !(got && reportsOnce)};
}

void rest() {
    const timespec time{0, button::pauseNanoseconds};
    nanosleep(&time, nullptr);
}

void* buttonThread(void*) {
    blockAllSignals();
    const ParamWrapper parameters(0, true);
    const int fd = button::openFile(underApplianceRoot(buttonFile));
    if (fd == -1) {
        printError("Failed to open\n");
        std::exit(1);
    }
    for (;;)
        button::turn(fd, parameters);
}

} // namespace

int button::openFile(const std::string& path) {
    // A FIFO that is opened for reading only waits for its first writer, and every read after the last writer has left
    // returns at once.
    struct stat info {};
    const bool fifo = stat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
    return open(path.c_str(), (fifo ? O_RDWR : O_RDONLY) | O_CLOEXEC);
}

void button::turn(int fd, const ParamWrapper& parameters) {
    const Reading reading = readFile(fd);
    if (parameters["Buttons.VideoSelectEnabled"] == "yes") {
        if (reading.value == shortPress)
            sendButton(false);
        else if (reading.value == held)
            sendButton(true);
    }
    if (reading.atOnce)
        rest();
}

bool startButtonThread() {
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, buttonThread, nullptr) == 0)
        return true;
    logmsg(2, "Failed to start video select button thread!!!");
    return false;
}
