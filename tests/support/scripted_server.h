// A TCP server that runs a list of steps: an encoder for tests, well-behaved or hostile.
//
//   scripted::Server server({scripted::readRequest(), scripted::send("HTTP/1.1 200 OK\r\n\r\n"),
//   scripted::stall()});
//   ... talk to 127.0.0.1, server.port() ...
//   EXPECT_EQ(server.requests().size(), 1U);
//
// It listens on loopback, on a port of its own, and serves each connection on a thread of its own. A script
// ends with its last step, when the client closes, or when the server is destroyed; the connection is closed
// then. All threads block every signal and are joined by the destructor, which never waits for a client.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace scripted {

class Certificate;
class Connection;

using Answer = std::function<std::string(const std::string& request)>;
using Condition = std::function<bool(const std::string& request)>;

// One step of a script; made by the functions below.
struct Step {
    enum class Kind {
        ReadRequest,
        ReadSome,
        Send,
        SendComputed,
        SendSlowly,
        SendEndlessly,
        Stall,
        Close,
        CloseWhen,
        Reset,
        StartOver,
    };
    Kind kind;
    std::string bytes;
    std::chrono::milliseconds pause{0};
    Answer answer;
    Condition condition;
};
using Script = std::vector<Step>;

Step readRequest(); // to the empty line; recorded
Step readSome();    // the next bytes, at least one; recorded
Step send(std::string bytes);
Step answer(Answer computed); // sends the function's answer to the last request
Step sendSlowly(std::string bytes, std::chrono::milliseconds pause); // one byte, a pause, ...
Step sendEndlessly(std::string pattern);
Step stall(); // sends nothing more and keeps the connection until the client closes it
Step close();
Step closeWhen(Condition condition); // when it holds for the last request; else nothing happens
Step reset();                        // with RST instead of FIN
Step startOver();                    // from the first step, on the same connection

// A reply with this end of the status line ("200 OK"), these further header lines ("Name: value\r\n"...), the body and
// its length.
std::string reply(const std::string& status, const std::string& body, const std::string& headers = "");

struct Options {
    const char* address = "127.0.0.1";        // or another loopback address, IPv4 or IPv6
    unsigned short port = 0;                  // 0: a free one
    const Certificate* certificate = nullptr; // speak TLS with it
    bool alsoPlain = false; // with a certificate: a client that does not begin TLS is served plain
};

class Server {
public:
    // Every connection gets the same script.
    explicit Server(Script script, Options options = {});

    // The first connection gets the first script and so on; further ones the last.
    explicit Server(std::vector<Script> scripts, Options options = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    unsigned short port() const;

    // In the order of their arrival, of all connections.
    std::vector<std::string> requests() const;
    int connections() const;    // accepted so far (over TLS: shaken hands or not)
    int closedByClient() const; // ended because the client closed or reset
    int stepsDone() const;      // finished steps, of all connections

    // Wait until the count is reached, at most 10 seconds; whether it was.
    bool waitForRequests(int count) const;
    bool waitForStepsDone(int count) const;
    bool waitForClosedByClient(int count) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// A port of 127.0.0.1 that refuses connections for as long as the object lives.
class RefusedPort {
public:
    RefusedPort();
    ~RefusedPort();
    RefusedPort(const RefusedPort&) = delete;
    RefusedPort& operator=(const RefusedPort&) = delete;
    unsigned short port() const { return port_; }

private:
    unsigned short port_ = 0;
    int descriptor_;
};

// A port of 127.0.0.1 that never answers a connection attempt: its backlog is full.
class FullBacklog {
public:
    explicit FullBacklog(unsigned short port = 0); // 0: a free one
    ~FullBacklog();
    FullBacklog(const FullBacklog&) = delete;
    FullBacklog& operator=(const FullBacklog&) = delete;
    unsigned short port() const { return port_; }

    // Waits for a connection attempt, at most 10 seconds; whether there was one.
    bool waitForAttempt() const;

private:
    unsigned short port_ = 0;
    std::vector<int> descriptors_;
};

} // namespace scripted
