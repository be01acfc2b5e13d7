// A libcommon for unit tests, linked in place of the real one. It records each call, and the test sets each answer.
// Call fake::reset() first in every test (fixture constructor).
//
// All effects are in one ordered list, fake::calls, as texts such as
//   param(0) Decoder.Connected=yes      status(3) ErrorCode=0        osdPrintf(0,0) No connection...
//   osdClear(1)   osdBlank()   set_led(2,3,3)   semaphoreSet(2001,0)  sendEvent(2,117,9)  syncEncoderInfo()
//   lockParamFile(0,1)  unlockParamFile(0,1)  clearEventQueue()  initEventQueue()  removeEventQueue()
// Log lines are in fake::log. An empty hook has the default that is named beside it.
#pragma once

#include <libcommon/libcommon.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace fake {

struct LogLine {
    int level;
    std::string text;
    bool operator==(const LogLine&) const = default;
};

// One request of download, downloadHTTP or downloadHTTPS.
struct Request {
    std::string function; // "download", "downloadHTTP", "downloadHTTPS"
    std::string address;  // as given; host for the other two
    unsigned short port = 0;
    std::string path;
    bool flag = false;
    std::string user;
    std::string password;
    bool hasBuffer = false;
    int size = 0;
    int timeout = 0;
};

// The reply to a request. A body longer than the buffer is cut; `result`, if set, replaces the byte count.
struct Reply {
    std::string body;
    int result = useBodySize;
    ConnectMode mode = CONNECT_HTTP;
    unsigned short port = 80;
    std::string host = "127.0.0.1";
    static constexpr int useBodySize = 1 << 30;
};

void reset();

extern std::vector<std::string> calls;
extern std::vector<LogLine> log; // logmsg locks it; read it when the other threads have ended
bool logged(int level, const std::string& text);

// Parameters. Every write goes to `calls` too.
void setParam(int file, const std::string& name, const std::string& value);
std::string getParam(int file, const std::string& name);
extern std::vector<SourceParams> sources; // what getSubGroups(0, "Encoder") returns

// Status store.
extern std::map<std::pair<int, std::string>, std::string> statusValues;

// Clock: gettimeusec() returns this.
extern std::int64_t now;
extern std::function<std::int64_t()> onGetTime; // default: now

// Events.
extern std::vector<Event> sentEvents;
extern int sendEventResult;             // default 0
extern std::deque<Event> waitingEvents; // the events that waitEvent returns; empty: -1
extern std::function<int(Event*)> onWaitEvent;
extern std::function<int(const Event*)> onSendEvent;

// Network.
extern std::vector<Request> requests;
extern std::function<Reply(const Request&)> onRequest;                                 // default: result -404
extern std::function<int(const std::string&, unsigned short, bool, int)> onConnectTCP; // default -1
extern std::function<int(const std::string&, unsigned short, bool)> onConnectUDP;      // default -1
extern std::function<int(int, ResponseHeader&)> onParseResponseHeader;                 // default -1
extern std::function<int(int, const void*, std::size_t)>
    onWriteFD; // default: appends to `written`, returns 1
extern std::string written;
extern bool interrupted;

// Barriers and semaphores.
extern std::function<int(int)> onGetBarrierIPC; // default -1
extern std::map<int, int> semaphores;
extern std::function<int(int)> onSemaphoreDecrease; // default 0, without waiting

} // namespace fake
