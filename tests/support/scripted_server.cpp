#include "tests/support/scripted_server.h"

#include "tests/support/certificate.h"
#include "tests/support/scripted_connection.h"

#include <arpa/inet.h>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <list>
#include <mutex>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace scripted {

namespace {

constexpr auto patience = std::chrono::seconds(10);

sockaddr_storage addressOf(const char* text, unsigned short port, socklen_t& length) {
    sockaddr_storage address = {};
    auto& ipv4 = reinterpret_cast<sockaddr_in&>(address);
    auto& ipv6 = reinterpret_cast<sockaddr_in6&>(address);
    if (inet_pton(AF_INET, text, &ipv4.sin_addr) == 1) {
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(port);
        length = sizeof ipv4;
    } else if (inet_pton(AF_INET6, text, &ipv6.sin6_addr) == 1) {
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(port);
        length = sizeof ipv6;
    } else {
        throw std::invalid_argument("not an address");
    }
    return address;
}

// A socket bound to `port` of `text`, or to a free port when `port` is 0.
int boundSocket(const char* text, unsigned short& port) {
    socklen_t length = 0;
    sockaddr_storage address = addressOf(text, port, length);
    const int fd = socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const int on = 1; // a port asked for may have an earlier test's connections in TIME_WAIT
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd < 0 || bind(fd, generic, length) != 0 || getsockname(fd, generic, &length) != 0)
        throw std::runtime_error("no port to listen on");
    port = ntohs(address.ss_family == AF_INET ? reinterpret_cast<sockaddr_in&>(address).sin_port
                                              : reinterpret_cast<sockaddr_in6&>(address).sin6_port);
    return fd;
}

Step step(Step::Kind kind, std::string bytes = {}) {
    return {.kind = kind, .bytes = std::move(bytes), .pause = {}, .answer = {}, .condition = {}};
}

bool endsConnection(const Step& step, const std::string& request) {
    using Kind = Step::Kind;
    return step.kind == Kind::Close || step.kind == Kind::Reset ||
           (step.kind == Kind::CloseWhen && step.condition(request));
}

} // namespace

Step readRequest() {
    return step(Step::Kind::ReadRequest);
}
Step readSome() {
    return step(Step::Kind::ReadSome);
}
Step send(std::string bytes) {
    return step(Step::Kind::Send, std::move(bytes));
}
Step answer(Answer computed) {
    return {.kind = Step::Kind::SendComputed,
            .bytes = {},
            .pause = {},
            .answer = std::move(computed),
            .condition = {}};
}
Step sendSlowly(std::string bytes, std::chrono::milliseconds pause) {
    return {.kind = Step::Kind::SendSlowly,
            .bytes = std::move(bytes),
            .pause = pause,
            .answer = {},
            .condition = {}};
}
Step sendEndlessly(std::string pattern) {
    return step(Step::Kind::SendEndlessly, std::move(pattern));
}
Step stall() {
    return step(Step::Kind::Stall);
}
Step close() {
    return step(Step::Kind::Close);
}
Step closeWhen(Condition condition) {
    return {.kind = Step::Kind::CloseWhen,
            .bytes = {},
            .pause = {},
            .answer = {},
            .condition = std::move(condition)};
}
Step reset() {
    return step(Step::Kind::Reset);
}
Step startOver() {
    return step(Step::Kind::StartOver);
}

std::string reply(const std::string& status, const std::string& body, const std::string& headers) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers +
           "\r\n" + body;
}

struct Server::State {
    State(std::vector<Script> allScripts, Options chosen);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void acceptConnections();
    void serve(Connection& connection, const Script& script);
    bool play(Connection& connection, const Step& step, std::string& request);
    bool pauseFor(std::chrono::milliseconds pause);
    void count(int& counter);
    bool waitFor(const int& counter, int wanted);

    const std::vector<Script> scripts;
    const Options options;
    unsigned short port;
    const int listener;

    std::mutex lock; // guards everything below
    std::condition_variable changed;
    bool stopping = false;
    std::vector<std::string> requests;
    int requestCount = 0;
    int connectionCount = 0;
    int clientCloses = 0;
    int stepsDone = 0;
    std::list<Connection> connections; // closed only by the destructor or by their own thread's end of script
    std::vector<std::thread> servers;

    std::thread acceptor; // last: it uses all of the above
};

Server::State::State(std::vector<Script> allScripts, Options chosen)
    : scripts(std::move(allScripts)), options(chosen), port(chosen.port),
      listener(boundSocket(chosen.address, port)) {
    constexpr int backlog = 64;
    if (listen(listener, backlog) != 0)
        throw std::runtime_error("can't listen");
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved); // every thread of the server inherits it
    acceptor = std::thread(&State::acceptConnections, this);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

Server::State::~State() {
    {
        const std::lock_guard guard(lock);
        stopping = true;
        for (Connection& connection : connections)
            connection.wake();
        changed.notify_all();
    }
    shutdown(listener, SHUT_RDWR);
    acceptor.join();
    for (std::thread& server : servers)
        server.join();
    ::close(listener);
}

void Server::State::acceptConnections() {
    for (;;) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard guard(lock);
        if (stopping || fd < 0) {
            if (fd >= 0)
                ::close(fd);
            return;
        }
        const auto index = std::min<std::size_t>(connectionCount++, scripts.size() - 1);
        ssl_ctx_st* context = options.certificate == nullptr ? nullptr : options.certificate->context();
        connections.emplace_back(fd, context, options.alsoPlain);
        const auto connection = std::prev(connections.end());
        servers.emplace_back([this, connection, index] {
            serve(*connection, scripts[index]);
            const std::lock_guard closing(lock);
            connections.erase(connection);
        });
    }
}

void Server::State::count(int& counter) {
    const std::lock_guard guard(lock);
    ++counter;
    changed.notify_all();
}

bool Server::State::waitFor(const int& counter, int wanted) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, patience, [&] { return counter >= wanted; });
}

void Server::State::serve(Connection& connection, const Script& script) {
    if (!connection.shakeHands())
        return;
    std::string request;
    for (std::size_t at = 0; at < script.size();) {
        const Step& current = script[at];
        if (endsConnection(current, request)) {
            if (current.kind == Step::Kind::Reset)
                connection.resetOnClose();
            count(stepsDone);
            return;
        }
        if (!play(connection, current, request)) {
            count(clientCloses);
            return;
        }
        count(stepsDone);
        at = current.kind == Step::Kind::StartOver ? 0 : at + 1;
    }
}

// False when the client is gone, or the server has to stop.
bool Server::State::play(Connection& connection, const Step& current, std::string& request) {
    using Kind = Step::Kind;
    switch (current.kind) {
    case Kind::ReadRequest:
    case Kind::ReadSome: {
        request = connection.read(current.kind == Kind::ReadSome);
        if (request.empty())
            return false;
        {
            const std::lock_guard guard(lock);
            requests.push_back(request);
        }
        count(requestCount);
        return true;
    }
    case Kind::Send:
        return connection.write(current.bytes);
    case Kind::SendComputed:
        return connection.write(current.answer(request));
    case Kind::SendSlowly:
        for (const char byte : current.bytes)
            if (!connection.write({byte}) || !pauseFor(current.pause))
                return false;
        return true;
    case Kind::SendEndlessly:
        while (connection.write(current.bytes)) {
        }
        return false;
    case Kind::Stall:
        connection.waitForClose();
        return false;
    case Kind::Close:
    case Kind::CloseWhen:
    case Kind::Reset:
    case Kind::StartOver:
        break;
    }
    return true;
}

bool Server::State::pauseFor(std::chrono::milliseconds pause) {
    std::unique_lock guard(lock);
    return !changed.wait_for(guard, pause, [this] { return stopping; });
}

Server::Server(Script script, Options options) : Server(std::vector<Script>{std::move(script)}, options) {}

Server::Server(std::vector<Script> scripts, Options options)
    : state_(std::make_unique<State>(std::move(scripts), options)) {}

Server::~Server() = default;

unsigned short Server::port() const {
    return state_->port;
}

std::vector<std::string> Server::requests() const {
    const std::lock_guard guard(state_->lock);
    return state_->requests;
}

int Server::connections() const {
    const std::lock_guard guard(state_->lock);
    return state_->connectionCount;
}

int Server::closedByClient() const {
    const std::lock_guard guard(state_->lock);
    return state_->clientCloses;
}

int Server::stepsDone() const {
    const std::lock_guard guard(state_->lock);
    return state_->stepsDone;
}

bool Server::waitForRequests(int count) const {
    return state_->waitFor(state_->requestCount, count);
}

bool Server::waitForStepsDone(int count) const {
    return state_->waitFor(state_->stepsDone, count);
}

bool Server::waitForClosedByClient(int count) const {
    return state_->waitFor(state_->clientCloses, count);
}

} // namespace scripted
