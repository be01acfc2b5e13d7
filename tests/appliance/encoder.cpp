#include "tests/appliance/encoder.h"

#include "tests/appliance/appliance.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace appliance {

namespace {

constexpr const char* sharedHost = "127.0.0.1";
constexpr const char* presetField = "gotoserverpresetname=";

int connectTo(const std::string& host, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        throw std::runtime_error("no connection to port " + std::to_string(port));
    }
    return fd;
}

// The control port reports each byte of a target as one character. This turns the characters into bytes again.
std::string bytesOf(const std::string& utf8) {
    std::string bytes;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        bytes += lead < 0x80 ? utf8[i] : static_cast<char>((lead & 3) << 6 | (utf8[++i] & 0x3f));
    }
    return bytes;
}

// Each connection has its own process, so that a hanging one does not delay the others.
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

Encoder::Encoder(std::string name, int mark, std::vector<std::string> arguments, std::string logFile,
                 std::string host)
    : name_(std::move(name)), mark_(mark), arguments_(std::move(arguments)), logFile_(std::move(logFile)),
      host_(std::move(host)) {
    if (host_.empty()) {
        startWith({"--http", "0", "--rtsp", "0", "--control", "0"});
    } else {
        startWith({"--http", "80", "--rtsp", "554", "--control", "0"});
    }
}

std::string Encoder::address() const {
    if (!host_.empty()) {
        return host_;
    }
    return sharedHost + (':' + std::to_string(port("https") != 0 ? port("https") : port("http")));
}

void Encoder::startWith(const std::vector<std::string>& ports) {
    std::vector<std::string> all{
        Appliance::program("video-encoder"), "--name", name_, "--mark", std::to_string(mark_), "--address",
        host_.empty() ? sharedHost : host_};
    all.insert(all.end(), ports.begin(), ports.end());
    all.insert(all.end(), arguments_.begin(), arguments_.end());
    std::filesystem::remove(logFile_);
    process_ = std::make_unique<Process>(all, std::map<std::string, std::string>{}, logFile_);
    const auto listens = [this] { return readFile(logFile_).find("control=") != std::string::npos; };
    eventually([&] { return listens() || !process_->running(); });
    if (!process_->running()) {
        throw std::runtime_error("video-encoder does not start; its log:\n" + readFile(logFile_));
    }
    std::istringstream words(readFile(logFile_));
    for (std::string word; words >> word;) {
        const std::size_t sign = word.find('=');
        if (sign != std::string::npos) {
            ports_[word.substr(0, sign)] = std::stoi(word.substr(sign + 1));
        }
    }
}

void Encoder::kill() {
    process_->signal(SIGKILL);
    process_->waitForEnd();
}

void Encoder::again() {
    std::vector<std::string> ports;
    for (const auto& [name, number] : ports_) {
        if (number != 0) {
            ports.insert(ports.end(), {"--" + name, std::to_string(number)});
        }
    }
    startWith(ports);
}

std::string Encoder::ask(const std::string& method, const std::string& path, const std::string& body) const {
    const int fd = connectTo(host_.empty() ? sharedHost : host_, port("control"));
    writeAll(fd, method + ' ' + path + " HTTP/1.0\r\nContent-Length: " + std::to_string(body.size()) +
                     "\r\n\r\n" + body);
    std::string reply;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(fd, buffer, sizeof buffer)) > 0;) {
        reply.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    const std::size_t empty = reply.find("\r\n\r\n");
    if (reply.find(" 200 ") > reply.find('\n') || empty == std::string::npos) {
        throw std::runtime_error("video-encoder refused " + path + ": " + reply);
    }
    return reply.substr(empty + 4);
}

void Encoder::setFaults(const std::string& faults) const {
    ask("POST", "/faults", faults);
}

std::vector<Encoder::Request> Encoder::requests() const {
    std::vector<Request> all;
    for (const auto& request : nlohmann::json::parse(ask("GET", "/requests", ""))) {
        all.push_back({request["protocol"], bytesOf(request["target"]), request["user"], request["status"]});
    }
    return all;
}

std::vector<std::string> Encoder::gotos() const {
    std::vector<std::string> presets;
    for (const Request& request : requests()) {
        const std::size_t at = request.target.find(presetField);
        if (at != std::string::npos) {
            presets.push_back(request.target.substr(at + std::strlen(presetField)));
        }
    }
    return presets;
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
