#include "appliance/ctl/actions.h"

#include "appliance/ctl/parameters.h"
#include "appliance/ctl/refused.h"

#include <libcommon/params.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* connectedName = "Decoder.Connected";

std::string where() {
    return libcommon::applianceRoot().empty() ? "on this machine" : "under " + libcommon::applianceRoot();
}

void send(const Event& event) {
    if (sendEvent(&event) == 0) {
        return;
    }
    switch (errno) {
    case ENOENT:
        throw Refused("no decoder is running " + where());
    case EAGAIN:
        throw Refused("the decoder's event queue is full: it does not keep up, try again");
    case EACCES:
        throw Refused("not allowed to talk to the decoder " + where() + ": use its user or group");
    default:
        throw Refused(std::string("the event could not be sent: ") + std::strerror(errno));
    }
}

std::string quoted(int index, const std::string& name) {
    return std::to_string(index) + " \"" + name + '"';
}

void writeParameter(const std::string& name, const std::string& value) {
    ParamWrapper parameters(parameterFile(name), true);
    parameters[name.c_str()] = value.c_str();
    if (parameters[name.c_str()].toString() != value) {
        throw Refused(name + " could not be written");
    }
}

} // namespace

void requireRunningAppliance() {
    if (libcommon::eventQueueOwner() < 0) {
        throw Refused("no decoder is running " + where());
    }
}

std::string sendPlainEvent(EventId id) {
    Event event{};
    event.id = id;
    send(event);
    return "";
}

std::string selectSource(int index, const std::string& name) {
    Event event{};
    event.id = EID_SELECT;
    event.value1 = index;
    send(event);
    return "selected " + quoted(index, name);
}

std::string raiseAlarm(int index, const std::string& name, const std::string& text) {
    Event event{};
    event.id = EID_ALARM;
    event.value1 = index;
    libcommon::setEventText(event, text.c_str());
    send(event);
    std::string answer = "alarm raised for " + quoted(index, name);
    const char* sent = reinterpret_cast<const char*>(event.payload);
    if (text != sent) {
        answer += "; the text was cut to \"" + std::string(sent) + '"';
    }
    return answer;
}

std::string setConnected(bool connected) {
    requireRunningAppliance();
    writeParameter(connectedName, connected ? "yes" : "no");
    sendPlainEvent(EID_CONNECTPROPERTYCHANGED);
    return connected ? "connected" : "disconnected";
}

std::string getParameter(const std::string& name) {
    std::string value = ParamWrapper(parameterFile(name), false)[name.c_str()].toString();
    if (value.empty()) {
        throw Refused(
            name + (findParameter(name) == nullptr ? " is not a parameter of this decoder" : " is not set"));
    }
    return value;
}

std::string setParameter(const std::string& name, const std::string& value, bool force) {
    if (!force) {
        const KnownParameter* known = findParameter(name);
        if (known == nullptr) {
            throw Refused(name + " is not a parameter of this decoder (--force writes it all the same)");
        }
        if (parameterFile(name) == 1) {
            throw Refused(name + " is written by the decoder itself (--force writes it all the same)");
        }
        if (const std::string wanted = refusal(*known, value); !wanted.empty()) {
            throw Refused(name + " takes " + wanted + ", not \"" + value +
                          "\" (--force writes it all the same)");
        }
    }
    if (strcasecmp(name.c_str(), connectedName) == 0) {
        requireRunningAppliance();
        writeParameter(name, value);
        return sendPlainEvent(EID_CONNECTPROPERTYCHANGED);
    }
    writeParameter(name, value);
    return "";
}

std::string pressButton(bool hold) {
    requireRunningAppliance();
    const std::string file = libcommon::appliancePath("/proc/sys/dev/button_videoselect");
    const int fd = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        throw Refused(errno == ENXIO ? "nobody reads the button " + file + ": no decoder is running"
                                     : "the button " + file + " can't be pressed: " + std::strerror(errno));
    }
    struct stat info {};
    // An ordinary file would go on reading as pressed, a press per read.
    const bool fifo = fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
    const ssize_t written = fifo ? write(fd, hold ? "2" : "1", 1) : 0;
    close(fd);
    if (!fifo) {
        throw Refused("the button " + file + " is not a FIFO: it is pressed by hand only");
    }
    if (written != 1) {
        throw Refused("the button " + file + " took no press: " + std::strerror(errno));
    }
    return hold ? "button held" : "button pressed";
}
