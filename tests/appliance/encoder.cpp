#include "tests/appliance/encoder.h"

#include "tests/appliance/appliance.h"

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace appliance {

namespace {

constexpr int attempts = 5; // another program may take a free port before the encoder does

bool answers(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return connected;
}

// Each connection in a process of its own, so that one that hangs holds up nobody.
[[noreturn]] void serve(int listener, const std::function<void(int)>& behaviour, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGCHLD, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    while (getppid() == parent) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        const pid_t server = getpid();
        if (fork() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == server) {
                behaviour(fd);
            }
            _exit(0);
        }
        close(fd);
    }
    _exit(0);
}

} // namespace

Encoder::Encoder(std::string name, int mark, std::vector<std::string> arguments, std::string logFile)
    : name_(std::move(name)), mark_(mark), arguments_(std::move(arguments)), logFile_(std::move(logFile)) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const int rtspPort = freePort();
        if (startOn(freePort(), rtspPort)) {
            return;
        }
    }
    throw std::runtime_error("video-encoder does not start; its log:\n" + readFile(logFile_));
}

bool Encoder::startOn(int httpPort, int rtspPort) {
    httpPort_ = httpPort;
    rtspPort_ = rtspPort;
    std::vector<std::string> all{Appliance::program("video-encoder"),
                                 "--http",
                                 std::to_string(httpPort),
                                 "--rtsp",
                                 std::to_string(rtspPort),
                                 "--name",
                                 name_,
                                 "--mark",
                                 std::to_string(mark_)};
    all.insert(all.end(), arguments_.begin(), arguments_.end());
    process_ = std::make_unique<Process>(all, std::map<std::string, std::string>{}, logFile_);
    eventually([&] { return !process_->running() || answers(httpPort); });
    return process_->running();
}

void Encoder::kill() {
    process_->signal(SIGKILL);
    process_->waitForEnd();
}

void Encoder::again() {
    if (!eventually([&] { return startOn(httpPort_, rtspPort_); })) {
        throw std::runtime_error("video-encoder does not start again; its log:\n" + readFile(logFile_));
    }
}

std::vector<std::string> Encoder::gotos() const {
    return {};
}

Oddity::Oddity(const std::function<void(int)>& behaviour) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener, 64) != 0) {
        throw std::runtime_error("cannot listen");
    }
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        serve(listener, behaviour, parent);
    }
    close(listener);
}

Oddity::~Oddity() {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

bool readRequest(int fd) {
    std::string request;
    char byte = 0;
    while (request.find("\r\n\r\n") == std::string::npos) {
        if (read(fd, &byte, 1) != 1) {
            return false;
        }
        request += byte;
    }
    return true;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace appliance
