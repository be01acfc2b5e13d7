// A player that was taken over: it confines itself as every player does, and then tries what it must not be able to do.
// Only for tests. The exit status is the number of attempts that were not refused, and of needs that were; the log names them.
//
// TRY_PORT and TRY_QUEUE in the environment are the port of another service, and the message queue of another decoder.
#include "appliance/players/showing/confined.h"
#include "appliance/players/showing/player_options.h"
#include "appliance/screen/frame_store.h"

#include <libcommon/barriers.h>
#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/paths.h>
#include <libcommon/settings_copy.h>
#include <libcommon/status.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

namespace {

int faults = 0;

void mustFail(long result, const std::string& what) {
    const int error = errno;
    if (result < 0 && (error == EPERM || error == EACCES))
        return;
    ++faults;
    logmsg(3, "not refused: %s (%ld, errno=%d %s)", what.c_str(), result, error, std::strerror(error));
}

void mustSucceed(bool good, const char* what) {
    if (good)
        return;
    ++faults;
    logmsg(3, "refused, but needed: %s (errno=%d %s)", what, errno, std::strerror(errno));
}

void tryFiles() {
    for (const char* secret :
         {"/etc/decoder/decoder.conf", "/etc/decoder/panel.accounts", "/etc/decoder/panel.tokens",
          "/etc/decoder/panel-key.pem", "/run/decoder/info.conf", "/run/decoder/panel/link",
          "/run/decoder/source/7/Reason", "/run/decoder/skelmor.lock", "/var/tmp/barrier.1"})
        mustFail(open(libcommon::appliancePath(secret).c_str(), O_RDONLY | O_CLOEXEC),
                 std::string("reading ") + secret);
    for (const char* changed :
         {"/etc/decoder/decoder.conf", "/run/decoder/info.conf", "/run/decoder/events.id",
          "/run/decoder/settings/decoder.conf", "/run/decoder/source/7/Reason", "/run/decoder/display/0",
          "/run/decoder/skelmor.lock", "/run/decoder/new", "/proc/sys/dev/button_videoselect"})
        mustFail(open(libcommon::appliancePath(changed).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600),
                 std::string("writing ") + changed);
    const std::string parent = "/proc/" + std::to_string(getppid());
    for (const std::string& path : {std::string("/etc/passwd"), std::string("/root"), std::string("/tmp"),
                                    std::string("/proc/self/mem"), parent + "/environ", parent + "/cmdline"})
        mustFail(open(path.c_str(), O_RDONLY | O_CLOEXEC), "reading " + path);
}

void tryPrograms() {
    char* arguments[] = {const_cast<char*>("sh"), nullptr};
    mustFail(execv("/bin/sh", arguments), "starting a shell");
    constexpr int told = 7;
    const int status = std::system("exit 7"); // NOLINT(cert-env33-c): it has to fail
    mustFail(status >= 0 && WEXITSTATUS(status) == told ? 0 : -1, "a shell command");
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    mustFail(child, "a new process");
}

void tryProcesses() {
    const pid_t supervisor = getppid();
    for (const int signal : {SIGHUP, SIGTERM, SIGUSR1, SIGCHLD})
        mustFail(kill(supervisor, signal), "a signal to the supervisor");
    mustFail(kill(-1, SIGCONT), "a signal to everybody");
    mustFail(ptrace(PTRACE_ATTACH, supervisor, nullptr, nullptr), "tracing the supervisor");
    char byte = 0;
    const iovec here{&byte, 1};
    mustFail(process_vm_readv(supervisor, &here, 1, &here, 1, 0), "reading the supervisor's memory");
    mustFail(mount("none", "/tmp", "tmpfs", 0, nullptr), "mounting");
}

void tryQueues(int events) {
    struct {
        long type = 1;
        Event event{};
    } message;
    for (const int id : {EID_CHILD, EID_BUTTON, EID_TIMEOUT, EID_BARRIER, EID_ALARM, EID_SELECT, EID_LOCK}) {
        message.event.id = id;
        message.event.value1 = getppid();
        mustFail(msgsnd(events, &message, sizeof message.event, IPC_NOWAIT),
                 "the event " + std::to_string(id));
    }
    const char* other = std::getenv("TRY_QUEUE");
    for (const int queue : {events, other == nullptr ? events : std::atoi(other)}) {
        mustFail(msgsnd(queue, &message, sizeof message.event, IPC_NOWAIT), "a message to another queue");
        mustFail(msgrcv(queue, &message, sizeof message.event, 0, IPC_NOWAIT),
                 "a message from another queue");
        mustFail(msgctl(queue, IPC_RMID, nullptr), "removing a queue");
    }
}

void trySockets() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    mustFail(listen(fd, 1), "listening");
    mustFail(socket(AF_INET, SOCK_RAW, IPPROTO_ICMP), "a raw socket");
    const char* port = std::getenv("TRY_PORT");
    if (port == nullptr)
        return;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    mustFail(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address),
             "a connection to another service");
}

// What a player does must go on.
void doItsWork(int source) {
    screen::FrameStore store;
    const std::vector<std::uint8_t> grey(std::size_t(4) * 1920 * 1080, 128);
    screen::PictureView picture;
    picture.shape.width = 1920;
    picture.shape.height = 1080;
    picture.shape.format = screen::PixelFormat::bgrx;
    picture.plane[0] = grey.data();
    picture.stride[0] = std::size_t(4) * 1920;
    mustSucceed(store.takeOver(screen::VideoMode::pal) && store.draw(picture, source).number > 0,
                "drawing a large picture");
    status(source, "Still", 17);
    mustSucceed(status(source, "Still") == "17", "a value of its own source");
    mustSucceed(libcommon::announceBarrier(0) == 0, "announcing itself");
    mustSucceed(libcommon::pollBarrierRelease(0) != 0 && errno == EAGAIN, "waiting for its release");
}

int eventQueue() {
    int id = -1;
    std::ifstream(libcommon::appliancePath("/run/decoder/events.id")) >> id;
    return id;
}

} // namespace

int main(int argc, char** argv) {
    static const player::ParsedOptions parsed = player::parseOptions(player::Kind::mjpeg, argc, argv);
    if (!parsed.options)
        return parsed.status;
    player::confineSelf(*parsed.options);
    const int events = eventQueue();
    doItsWork(parsed.options->source);
    tryFiles();
    tryQueues(events);
    trySockets();
    tryProcesses();
    tryPrograms();
    return faults;
}
