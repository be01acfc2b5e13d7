#include "tests/fakes/fake_libcommon.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace fake {

std::vector<std::string> calls;
std::vector<LogLine> log;
std::vector<SourceParams> sources;
std::map<std::pair<int, std::string>, std::string> statusValues;
std::int64_t now = 0;
std::function<std::int64_t()> onGetTime;
std::vector<Event> sentEvents;
int sendEventResult = 0;
std::deque<Event> waitingEvents;
std::function<int(Event*)> onWaitEvent;
std::function<int(const Event*)> onSendEvent;
std::vector<Request> requests;
std::function<Reply(const Request&)> onRequest;
std::function<int(const std::string&, unsigned short, bool, int)> onConnectTCP;
std::function<int(const std::string&, unsigned short, bool)> onConnectUDP;
std::function<int(int, ResponseHeader&)> onParseResponseHeader;
std::function<int(int, const void*, std::size_t)> onWriteFD;
std::string written;
bool interrupted = false;
std::function<int(int)> onGetBarrierIPC;
std::map<int, int> semaphores;
std::function<int(int)> onSemaphoreDecrease;

namespace {

std::map<std::pair<int, istring>, std::string> params;
std::recursive_mutex lock;

void record(std::string call) {
    const std::lock_guard guard(lock);
    calls.push_back(std::move(call));
}

template<class... Args>
void recordf(const char* format, Args... args) {
    char text[512];
    std::snprintf(text, sizeof text, format, args...);
    record(text);
}

std::string formatted(const char* format, va_list args) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, args);
    return text;
}

int answer(const Request& request, char* buffer, ConnectMode* mode, unsigned short* port, char* host) {
    requests.push_back(request);
    Reply reply{.body = {}, .result = -404};
    if (onRequest)
        reply = onRequest(request);
    if (interrupted)
        return -42;
    if (mode != nullptr)
        *mode = reply.mode;
    if (port != nullptr)
        *port = reply.port;
    if (host != nullptr)
        std::snprintf(host, hostBufferSize, "%s", reply.host.c_str());
    const int bytes =
        buffer == nullptr ? 0 : std::min<int>(request.size, static_cast<int>(reply.body.size()));
    if (bytes > 0)
        std::memcpy(buffer, reply.body.data(), static_cast<std::size_t>(bytes));
    return reply.result == Reply::useBodySize ? bytes : reply.result;
}

} // namespace

void reset() {
    calls.clear();
    log.clear();
    params.clear();
    sources.clear();
    statusValues.clear();
    now = 0;
    onGetTime = nullptr;
    sentEvents.clear();
    sendEventResult = 0;
    waitingEvents.clear();
    onWaitEvent = nullptr;
    onSendEvent = nullptr;
    requests.clear();
    onRequest = nullptr;
    onConnectTCP = nullptr;
    onConnectUDP = nullptr;
    onParseResponseHeader = nullptr;
    onWriteFD = nullptr;
    written.clear();
    interrupted = false;
    onGetBarrierIPC = nullptr;
    semaphores.clear();
    onSemaphoreDecrease = nullptr;
}

bool logged(int level, const std::string& text) {
    const std::lock_guard guard(lock);
    return std::find(log.begin(), log.end(), LogLine{level, text}) != log.end();
}

void setParam(int file, const std::string& name, const std::string& value) {
    const std::lock_guard guard(lock);
    params[{file, name.c_str()}] = value;
}

std::string getParam(int file, const std::string& name) {
    const std::lock_guard guard(lock);
    const auto found = params.find({file, name.c_str()});
    return found == params.end() ? "" : found->second;
}

} // namespace fake

struct ParameterSnapshot {};

Param::Param(int fileId, std::string name, std::shared_ptr<const ParameterSnapshot> snapshot)
    : fileId_(fileId), name_(std::move(name)), snapshot_(std::move(snapshot)) {}
std::string Param::toString() const {
    return fake::getParam(fileId_, name_);
}
int Param::toInt() const {
    return std::atoi(toString().c_str());
}
bool Param::operator==(const char* text) const {
    return toString() == text;
}
bool Param::operator!=(const char* text) const {
    return toString() != text;
}
Param& Param::operator=(const char* text) {
    fake::setParam(fileId_, name_, text);
    fake::recordf("param(%d) %s=%s", fileId_, name_.c_str(), text);
    return *this;
}
Param& Param::operator=(int value) {
    return *this = std::to_string(value).c_str();
}

ParamWrapper::ParamWrapper(int fileId, bool) : fileId_(fileId) {}
Param ParamWrapper::operator[](const char* name) const {
    return {fileId_, name, nullptr};
}

namespace {

class FakeSubGroups : public SubGroupList {
public:
    explicit FakeSubGroups(std::vector<SourceParams> records) : records_(std::move(records)) {}
    std::size_t size() const override { return records_.size(); }
    SourceParams record(std::size_t position) const override { return records_.at(position); }

private:
    std::vector<SourceParams> records_;
};

} // namespace

SubGroups getSubGroups(int, const char*) {
    return SubGroups(std::make_shared<const FakeSubGroups>(fake::sources));
}
int userOpenAndLockParamFile(int fileId, int exclusive) {
    fake::recordf("lockParamFile(%d,%d)", fileId, exclusive);
    return 0;
}
int userCloseAndUnlockParamFile(int fileId, int exclusive) {
    fake::recordf("unlockParamFile(%d,%d)", fileId, exclusive);
    return 0;
}
void syncEncoderInfo() {
    fake::record("syncEncoderInfo()");
}

void status(int index, const std::string& key, const char* value) {
    fake::statusValues[{index, key}] = value;
    fake::record("status(" + std::to_string(index) + ") " + key + "=" + value);
}
void status(int index, const std::string& key, int value) {
    status(index, key, std::to_string(value).c_str());
}
std::string status(int index, const std::string& key) {
    const auto found = fake::statusValues.find({index, key});
    return found == fake::statusValues.end() ? "" : found->second;
}
void copyStatus(int fromIndex, int toIndex, const std::string& key) {
    fake::statusValues[{toIndex, key}] = status(fromIndex, key);
    fake::recordf("copyStatus(%d,%d) %s", fromIndex, toIndex, key.c_str());
}

const char* const videoSourceTypeString[9] = {
    "auto",           "mjpeg",    "mpeg2-unicast", "mpeg2-multicast", "rtsp-unicast",
    "rtsp-multicast", "rtsp-tcp", "rtsp-http",     "unknown"};
const char* const connectModeString[5] = {"auto", "http", "http-auth", "https", "unknown"};
const char* const audioSourceTypeString[6] = {"none", "mpeg", "g711", "g726", "aac", "unknown"};

int getNumberByString(const char* text, const char* const* table, std::size_t size) {
    if (*text == '\0')
        return 0;
    for (std::size_t i = 0; i < size; ++i)
        if (strcasecmp(text, table[i]) == 0)
            return static_cast<int>(i);
    return -1;
}

void logmsg(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::lock_guard guard(fake::lock);
    fake::log.push_back({level, fake::formatted(format, args)});
    va_end(args);
}

std::int64_t gettimeusec() {
    return fake::onGetTime ? fake::onGetTime() : fake::now;
}

bool isInterrupted() {
    return fake::interrupted;
}
void setInterrupted() {
    fake::interrupted = true;
}
void clearInterrupted() {
    fake::interrupted = false;
}

int initEventQueue() {
    fake::record("initEventQueue()");
    return 0;
}
int waitEvent(Event* event) {
    if (fake::onWaitEvent)
        return fake::onWaitEvent(event);
    if (fake::waitingEvents.empty())
        return -1;
    *event = fake::waitingEvents.front();
    fake::waitingEvents.pop_front();
    return 0;
}
int sendEvent(const Event* event) {
    if (fake::onSendEvent)
        return fake::onSendEvent(event);
    const std::lock_guard guard(fake::lock);
    fake::sentEvents.push_back(*event);
    fake::recordf("sendEvent(%d,%d,%d)", event->id, event->value1, event->value2);
    return fake::sendEventResult;
}
void clearEventQueue() {
    fake::record("clearEventQueue()");
}
void removeEventQueue() {
    fake::record("removeEventQueue()");
}
namespace libcommon {
void setEventText(Event& event, const char* text) {
    std::memset(event.payload, 0, sizeof event.payload);
    std::memcpy(event.payload, text, std::min<std::size_t>(std::strlen(text), alarmTextBytes));
}
} // namespace libcommon

int semaphoreInit(int id) {
    fake::semaphores[id] = 0;
    fake::recordf("semaphoreInit(%d)", id);
    return 0;
}
int semaphoreSet(int id, int value) {
    fake::semaphores[id] = value;
    fake::recordf("semaphoreSet(%d,%d)", id, value);
    return 0;
}
int semaphoreIncrease(int id) {
    ++fake::semaphores[id];
    fake::recordf("semaphoreIncrease(%d)", id);
    return 0;
}
int semaphoreDecrease(int id) {
    fake::recordf("semaphoreDecrease(%d)", id);
    return fake::onSemaphoreDecrease ? fake::onSemaphoreDecrease(id) : 0;
}

int getBarrierIPC(int pid) {
    return fake::onGetBarrierIPC ? fake::onGetBarrierIPC(pid) : -1;
}

void osdPrintf(int line, int displayTime, const char* format, ...) {
    va_list args;
    va_start(args, format);
    fake::recordf("osdPrintf(%d,%d) %s", line, displayTime, fake::formatted(format, args).c_str());
    va_end(args);
}
void osdClear(int line) {
    fake::recordf("osdClear(%d)", line);
}
void osdBlank() {
    fake::record("osdBlank()");
}
void set_led(int led, int colour, int pattern) {
    fake::recordf("set_led(%d,%d,%d)", led, colour, pattern);
}

int download(const std::string& address, const std::string& user, const std::string& password,
             const std::string& path, char* buffer, int size, int timeout, ConnectMode* mode,
             unsigned short* port, char* host) {
    return fake::answer(
        {"download", address, 0, path, false, user, password, buffer != nullptr, size, timeout}, buffer, mode,
        port, host);
}
int downloadHTTP(const std::string& host, unsigned short port, const std::string& path, bool withCredentials,
                 const std::string& user, const std::string& password, char* buffer, int size, int timeout,
                 char*) {
    return fake::answer(
        {"downloadHTTP", host, port, path, withCredentials, user, password, buffer != nullptr, size, timeout},
        buffer, nullptr, nullptr, nullptr);
}
int downloadHTTPS(const std::string& host, unsigned short port, const std::string& path,
                  const std::string& user, const std::string& password, char* buffer, int size, int timeout) {
    return fake::answer(
        {"downloadHTTPS", host, port, path, true, user, password, buffer != nullptr, size, timeout}, buffer,
        nullptr, nullptr, nullptr);
}

int connectTCP(const std::string& host, unsigned short port, bool blocking, int timeout) {
    return fake::onConnectTCP ? fake::onConnectTCP(host, port, blocking, timeout) : -1;
}
int connectUDP(const std::string& host, unsigned short port, bool fromHostOnly) {
    return fake::onConnectUDP ? fake::onConnectUDP(host, port, fromHostOnly) : -1;
}
int parseResponseHeader(int fd, ResponseHeader& header) {
    return fake::onParseResponseHeader ? fake::onParseResponseHeader(fd, header) : -1;
}
int writeFD(int fd, const void* buffer, std::size_t length) {
    if (fake::onWriteFD)
        return fake::onWriteFD(fd, buffer, length);
    fake::written.append(static_cast<const char*>(buffer), length);
    return 1;
}

std::string base64encode(const void* bytes, std::size_t length) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto* in = static_cast<const unsigned char*>(bytes);
    std::string out;
    for (std::size_t i = 0; i < length; i += 3) {
        const std::size_t left = length - i;
        const unsigned word = (in[i] << 16) | (left > 1 ? in[i + 1] << 8 : 0) | (left > 2 ? in[i + 2] : 0);
        out += digits[word >> 18];
        out += digits[(word >> 12) & 63];
        out += left > 1 ? digits[(word >> 6) & 63] : '=';
        out += left > 2 ? digits[word & 63] : '=';
    }
    return out;
}

int splitAddress(const std::string& address, std::string& host, unsigned short& port) {
    const auto colon = address.find(':');
    host = address.substr(0, colon);
    if (colon != std::string::npos)
        port = static_cast<unsigned short>(std::atoi(address.c_str() + colon + 1));
    return 0;
}

void toLower(char* text) {
    for (; *text != '\0'; ++text)
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
}
