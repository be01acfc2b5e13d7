// A host that nobody was told to talk to: hostile encoders and cameras name it, and a test looks whether anybody came.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

// Listens with TCP and UDP on one port of an address of loopback that nothing else uses.
class Trap {
public:
    Trap()
        : stream_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          datagrams_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        inet_pton(AF_INET, host(), &address_.sin_addr);
        auto* address = reinterpret_cast<sockaddr*>(&address_);
        socklen_t size = sizeof address_;
        good_ = bind(stream_, address, size) == 0 && listen(stream_, 8) == 0 &&
                getsockname(stream_, address, &size) == 0 && bind(datagrams_, address, size) == 0;
    }
    ~Trap() {
        close(stream_);
        close(datagrams_);
    }
    Trap(const Trap&) = delete;
    Trap& operator=(const Trap&) = delete;

    bool isSet() const { return good_; } // otherwise it catches nothing
    static const char* host() { return "127.0.0.77"; }
    std::string port() const { return std::to_string(ntohs(address_.sin_port)); }
    std::string place() const { return host() + (":" + port()); }

    // Whether a connection or a datagram has come.
    bool caught() const {
        pollfd ready[] = {{stream_, POLLIN, 0}, {datagrams_, POLLIN, 0}};
        return poll(ready, 2, 0) > 0;
    }

private:
    int stream_;
    int datagrams_;
    sockaddr_in address_{};
    bool good_ = false;
};

// The text with the trap's host for "HOST" and its port for "PORT".
inline std::string baited(std::string text, const Trap& trap) {
    for (const auto& [word, value] :
         {std::pair<std::string, std::string>{"HOST", Trap::host()}, {"PORT", trap.port()}})
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += value.size())
            text.replace(at, word.size(), value);
    return text;
}
