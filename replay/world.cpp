// The world of a replay, in place of libcommon and of the signals to players: nothing that the supervisor does has an effect.
//
// What it asks libcommon for is answered by the tape before it gets here (recorder/recorded.h).
#include "launcher/player_signal.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"
#include "replay/replay.h"

#include <libcommon/libcommon.h>

#include <cstdarg>
#include <cstdio>

namespace {

// All process-wide state of this file.
bool logIsPrinted = false;

} // namespace

void replay::printLog(bool on) {
    logIsPrinted = on;
}

std::int64_t gettimeusec() {
    return recorder::replayed() == nullptr ? 0 : recorder::replayed()->now();
}

void logmsg(int level, const char* format, ...) {
    if (!logIsPrinted)
        return;
    std::va_list values;
    va_start(values, format);
    std::printf("    %d ", level);
    std::vprintf(format, values);
    std::putchar('\n');
    va_end(values);
}

void printTrace(const char* /*format*/, ...) {}

void signalPlayer(int /*pid*/, int /*signo*/) {}

// ---- Parameters.

Param::Param(int fileId, std::string name, std::shared_ptr<const ParameterSnapshot> snapshot)
    : fileId_(fileId), name_(std::move(name)), snapshot_(std::move(snapshot)) {}
int Param::toInt() const {
    return 0;
}
std::string Param::toString() const {
    return "";
}
bool Param::operator==(const char* /*text*/) const {
    return false;
}
bool Param::operator!=(const char* /*text*/) const {
    return true;
}
Param& Param::operator=(const char* /*text*/) {
    return *this;
}
Param& Param::operator=(int /*value*/) {
    return *this;
}
ParamWrapper::ParamWrapper(int fileId, bool /*fresh*/) : fileId_(fileId) {}
Param ParamWrapper::operator[](const char* name) const {
    return {fileId_, name, nullptr};
}
SubGroups getSubGroups(int /*fileId*/, const char* /*group*/) {
    return {};
}
int userOpenAndLockParamFile(int /*fileId*/, int /*exclusive*/) {
    return 0;
}
int userCloseAndUnlockParamFile(int /*fileId*/, int /*exclusive*/) {
    return 0;
}
void syncEncoderInfo() {}

// ---- Status values, display.

void status(int /*index*/, const std::string& /*key*/, const char* /*value*/) {}
void status(int /*index*/, const std::string& /*key*/, int /*value*/) {}
std::string status(int /*index*/, const std::string& /*key*/) {
    return "";
}
void copyStatus(int /*fromIndex*/, int /*toIndex*/, const std::string& /*key*/) {}
void osdPrintf(int /*line*/, int /*displayTime*/, const char* /*format*/, ...) {}
void osdClear(int /*line*/) {}
void osdBlank() {}
void set_led(int /*led*/, int /*colour*/, int /*pattern*/) {}

// ---- Events, semaphores, barriers.

int initEventQueue() {
    return 0;
}
int waitEvent(Event* /*event*/) {
    return -1;
}
int sendEvent(const Event* /*event*/) {
    return 0;
}
void clearEventQueue() {}
int semaphoreInit(int /*id*/) {
    return 0;
}
int semaphoreSet(int /*id*/, int /*value*/) {
    return 0;
}
int semaphoreIncrease(int /*id*/) {
    return 0;
}
int semaphoreDecrease(int /*id*/) {
    return 0;
}
int getBarrierIPC(int /*pid*/) {
    return -1;
}

// ---- Network.

bool isInterrupted() {
    return false;
}
void setInterrupted() {}
void clearInterrupted() {}
int download(const std::string& /*address*/, const std::string& /*user*/, const std::string& /*password*/,
             const std::string& /*path*/, char* /*buffer*/, int /*size*/, int /*timeout*/,
             ConnectMode* /*mode*/, unsigned short* /*port*/, char* /*host*/) {
    return -1;
}
int downloadHTTP(const std::string& /*host*/, unsigned short /*port*/, const std::string& /*path*/,
                 bool /*withCredentials*/, const std::string& /*user*/, const std::string& /*password*/,
                 char* /*buffer*/, int /*size*/, int /*timeout*/, char* /*errorText*/) {
    return -1;
}
int downloadHTTPS(const std::string& /*host*/, unsigned short /*port*/, const std::string& /*path*/,
                  const std::string& /*user*/, const std::string& /*password*/, char* /*buffer*/,
                  int /*size*/, int /*timeout*/) {
    return -1;
}
int connectTCP(const std::string& /*host*/, unsigned short /*port*/, bool /*blocking*/, int /*timeout*/) {
    return -1;
}
int connectUDP(const std::string& /*host*/, unsigned short /*port*/, bool /*fromHostOnly*/) {
    return -1;
}
int parseResponseHeader(int /*fd*/, ResponseHeader& /*header*/) {
    return -1;
}
int writeFD(int /*fd*/, const void* /*buffer*/, std::size_t /*length*/) {
    return -1;
}
