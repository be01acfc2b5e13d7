// libcommon's calls that decide what the supervisor does, as crossings (recorder.h). The supervisor uses these in place of
// libcommon's own; what they do and return is in libcommon's headers.
#pragma once

#include "process/signal_mask.h"
#include "recorder/recorder.h"

#include <libcommon/events.h>
#include <libcommon/network.h>
#include <libcommon/params.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace recorded {

// A parameter that is read or assigned.
class Parameter {
public:
    Parameter(int fileId, const char* name, const Param& parameter)
        : fileId_(fileId), name_(name), parameter_(parameter) {}

    int toInt() const;
    std::string toString() const;
    bool operator==(const char* text) const;
    bool operator!=(const char* text) const { return !(*this == text); }

    void operator=(const char* text) { parameter_ = text; }
    void operator=(int value) { parameter_ = value; }

private:
    int fileId_;
    const char* name_; // outlives this object
    Param parameter_;
};

// A parameter file.
class Parameters {
public:
    Parameters(int fileId, bool fresh) : fileId_(fileId), file_(fileId, fresh) {}
    Parameter operator[](const char* name) const { return {fileId_, name, file_[name]}; }

private:
    int fileId_;
    ParamWrapper file_;
};

SubGroups getSubGroups(int fileId, const char* group);

std::string status(int index, const std::string& key);

std::int64_t gettimeusec();

bool isInterrupted();

// The sleep of the main thread.
inline void sleepSeconds(int seconds) {
    recorder::outcome("sleep", [&] {
        ::sleepSeconds(seconds);
        return 0;
    });
}

int download(const std::string& address, const std::string& user, const std::string& password,
             const std::string& path, char* buffer, int size, int timeout, ConnectMode* mode,
             unsigned short* port, char* host);
int downloadHTTP(const std::string& host, unsigned short port, const std::string& path, bool withCredentials,
                 const std::string& user, const std::string& password, char* buffer, int size, int timeout,
                 char* errorText);
int downloadHTTPS(const std::string& host, unsigned short port, const std::string& path,
                  const std::string& user, const std::string& password, char* buffer, int size, int timeout);

// In a replay the descriptor is one of /dev/null.
int connectTCP(const std::string& host, unsigned short port, bool blocking, int timeout);
int connectUDP(const std::string& host, unsigned short port, bool fromHostOnly);

int parseResponseHeader(int fd, ResponseHeader& header);
int writeFD(int fd, const void* buffer, std::size_t length);

// An event that has come from the appliance's queue. Event handler thread.
void noteArrival(const Event& event);

// What a take from the supervisor's own queue returned.
void exchangeEvent(recorder::Crossing& crossing, Event& event);
template<class Take>
int take(Event& event, bool wait, Take takeIt) {
    recorder::Crossing crossing("take");
    crossing.in(wait ? 1 : 0);
    int result = crossing.replays() ? 0 : takeIt();
    crossing.out(result);
    if (result == 0)
        exchangeEvent(crossing, event);
    return result;
}

} // namespace recorded
