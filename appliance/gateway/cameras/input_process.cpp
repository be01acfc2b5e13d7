#include "appliance/gateway/cameras/input_process.h"

#include "appliance/gateway/cameras/playable.h"
#include "appliance/streams/stream_description.h"

#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t readBytes = 64 * 1024;
constexpr int readsAtOnce = 16; // then the loop looks after the others
constexpr std::size_t mostWaiting = 1024 * 1024;
constexpr std::size_t longestReason = 300;
constexpr std::chrono::milliseconds reapTime(50);
constexpr const char* failed = "camera-input, which reads it, has failed";

// It is in the same prefix as this program.
std::string inputProgram() {
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
    const std::string own(path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    return own.substr(0, own.rfind('/') + 1) + INPUT_FROM_HERE + "/camera-input";
}

// The program with the socket as its standard input, and with no signal blocked or ignored. Returns errno's value.
int spawn(const std::string& program, int socket, pid_t& pid) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = "camera-input";
    char* arguments[] = {name.data(), nullptr};
    const int error = posix_spawn(&pid, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

// It was killed, so it ends soon.
void reap(EventLoop& loop, pid_t pid) {
    if (waitpid(pid, nullptr, WNOHANG) == 0)
        loop.after(reapTime, [&loop, pid] { reap(loop, pid); });
}

} // namespace

InputProcess::InputProcess(EventLoop& loop, Events events)
    : loop_(loop), events_(std::move(events)),
      reader_({.message = [](streams::RtspMessage&& /*message*/) {},
               .packet = [this](int channel, std::string_view bytes) { onMessage(channel, bytes); }}) {}

InputProcess::~InputProcess() {
    stop();
}

void InputProcess::stop() {
    if (fd_ >= 0) {
        loop_.forget(fd_);
        close(fd_);
    }
    fd_ = -1;
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        reap(loop_, pid_);
    }
    pid_ = -1;
}

Failure InputProcess::start(const input::Request& request) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return {Fault::unsupported, std::string("camera-input can't be started: ") + std::strerror(errno)};
    const std::string program = inputProgram();
    const int error = spawn(program, ends[1], pid_);
    close(ends[1]);
    fd_ = ends[0];
    if (error != 0) {
        pid_ = -1;
        stop();
        return {Fault::unsupported,
                error == ENOENT ? "camera-input is not installed (" + program + ")"
                                : std::string("camera-input can't be started: ") + std::strerror(error)};
    }
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t events) { onReady(events); });
    waiting_ = input::framed(static_cast<int>(input::ToInput::request), input::textOf(request));
    writeWaiting();
    return {};
}

void InputProcess::give(std::string_view packet) {
    if (fd_ < 0 || waiting_.size() > mostWaiting)
        return;
    waiting_ += input::framed(static_cast<int>(input::ToInput::packet), packet);
    writeWaiting();
}

void InputProcess::writeWaiting() {
    while (!waiting_.empty()) {
        const ssize_t count = send(fd_, waiting_.data(), waiting_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break; // the reading side reports the end
        waiting_.erase(0, static_cast<std::size_t>(count));
    }
    loop_.change(fd_, waiting_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT);
}

void InputProcess::onReady(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0)
        writeWaiting();
    static thread_local std::array<char, readBytes> bytes;
    for (int i = 0; i < readsAtOnce && !ended_; ++i) {
        const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (count <= 0 || !reader_.feed(bytes.data(), static_cast<std::size_t>(count)))
            return end({Fault::ended, failed});
        if (static_cast<std::size_t>(count) < bytes.size())
            break;
    }
    if (!ended_)
        events_.pause();
}

void InputProcess::onMessage(int channel, std::string_view bytes) {
    if (ended_)
        return;
    switch (static_cast<input::FromInput>(channel)) {
    case input::FromInput::video:
        return described_ ? events_.packet(Track::video, bytes) : void();
    case input::FromInput::sound:
        return described_ ? events_.packet(Track::sound, bytes) : void();
    case input::FromInput::description:
        return describe(bytes);
    case input::FromInput::failure:
        return end({Fault::ended, libcommon::printable(std::string(bytes.substr(0, longestReason)))});
    case input::FromInput::otherForm:
        return end({Fault::notUnderstood, libcommon::printable(std::string(bytes.substr(0, longestReason)))});
    case input::FromInput::encoded:
        encoded_ = libcommon::printable(std::string(bytes.substr(0, longestReason)));
        return;
    }
}

void InputProcess::describe(std::string_view text) {
    std::string reason;
    const auto description =
        streams::readDescription(std::string(text), "input", isPlayableVideo, isPlayableSound, reason);
    if (!description)
        return end({Fault::unsupported, "its stream can't be used: " + reason});
    StreamInfo info;
    info.video = trackOf(*description->video);
    if (description->sound)
        info.sound = trackOf(*description->sound);
    info.encoded = encoded_;
    described_ = true;
    events_.described(info);
}

void InputProcess::end(const Failure& failure) {
    if (std::exchange(ended_, true))
        return;
    loop_.forget(fd_);
    events_.ended(failure);
}

} // namespace gateway
