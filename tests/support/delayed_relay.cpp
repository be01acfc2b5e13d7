#include "tests/support/delayed_relay.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <list>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace scripted {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostQueued = 4 * 1024 * 1024; // of a stream that the client does not read

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void sendAtOnce(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Bytes under way from one socket to the other.
struct Way {
    struct Packet {
        Clock::time_point due;
        std::string bytes; // empty: the end
        bool asks = false; // the first of a request
    };

    int from;
    int to;
    std::deque<Packet> packets;
    std::size_t queued = 0;
    bool ended = false;  // nothing more comes in
    bool closed = false; // and nothing more goes out
    bool blocked = false;

    bool reads() const { return !ended && queued < mostQueued; }

    // True when bytes came.
    bool take(Clock::time_point due, bool asks) {
        std::array<char, 65536> bytes;
        const ssize_t got = recv(from, bytes.data(), bytes.size(), 0);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            return false;
        ended = got <= 0;
        packets.push_back(
            {due, std::string(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))), asks});
        queued += packets.back().bytes.size();
        return !ended;
    }

    // How many requests went out. A client that has left waits for no answer.
    int give(Clock::time_point now) {
        int asked = 0;
        blocked = false;
        while (!closed && !packets.empty() && packets.front().due <= now) {
            std::string& bytes = packets.front().bytes;
            if (bytes.empty()) {
                shutdown(to, SHUT_WR);
                closed = true;
                return asked;
            }
            const ssize_t sent = send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            blocked = sent < 0 && errno == EAGAIN;
            if (blocked)
                return asked;
            if (sent < 0) { // the receiver is gone: drop the rest, too
                ended = closed = true;
                return asked;
            }
            queued -= static_cast<std::size_t>(sent);
            bytes.erase(0, static_cast<std::size_t>(sent));
            if (!bytes.empty())
                continue;
            asked += packets.front().asks && !ended ? 1 : 0;
            packets.pop_front();
        }
        return asked;
    }
};

struct Relayed {
    Clock::time_point opened;
    Way request;
    Way answer;
    bool clientSpoke = false; // after the server
};

} // namespace

struct DelayedRelay::State {
    State(unsigned short wantedPort, unsigned short targetPort, std::chrono::milliseconds delay);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void run();
    void accept();
    void serve(Relayed& relayed, const pollfd* polled);
    Clock::time_point nextDue() const;

    const unsigned short target;
    const std::chrono::milliseconds eachWay;
    unsigned short port = 0;
    int listener;
    int wake[2] = {-1, -1};
    std::atomic<int> connections{0};
    std::atomic<int> exchanges{0};
    std::list<Relayed> all; // used by the thread only
    std::thread thread;     // last: it uses all of the above
};

DelayedRelay::State::State(unsigned short wantedPort, unsigned short targetPort,
                           std::chrono::milliseconds delay)
    : target(targetPort), eachWay(delay), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = loopback(wantedPort);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, length) != 0 || listen(listener, 64) != 0 ||
        getsockname(listener, generic, &length) != 0 || pipe2(wake, O_CLOEXEC) != 0)
        throw std::runtime_error("the relay can't listen");
    port = ntohs(address.sin_port);
    sigset_t every;
    sigset_t saved;
    sigfillset(&every);
    pthread_sigmask(SIG_SETMASK, &every, &saved); // the thread inherits it
    thread = std::thread(&State::run, this);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

DelayedRelay::State::~State() {
    close(wake[1]);
    thread.join();
    close(wake[0]);
    close(listener);
    for (const Relayed& relayed : all) {
        close(relayed.request.from);
        close(relayed.request.to);
    }
}

void DelayedRelay::State::accept() {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0)
        return;
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(target);
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(server);
        close(client);
        return;
    }
    sendAtOnce(client);
    sendAtOnce(server);
    ++connections;
    all.push_back({Clock::now(), {client, server, {}}, {server, client, {}}});
}

// `polled` has the client's socket first, then the server's.
void DelayedRelay::State::serve(Relayed& relayed, const pollfd* polled) {
    const Clock::time_point now = Clock::now();
    // The handshake's round trip is over before the first request is on its way.
    const Clock::time_point due = std::max(now + eachWay, relayed.opened + 3 * eachWay);
    if (relayed.request.reads() && (polled[0].revents & ~POLLOUT) != 0 &&
        relayed.request.take(due, !relayed.clientSpoke))
        relayed.clientSpoke = true;
    if (relayed.answer.reads() && (polled[1].revents & ~POLLOUT) != 0 &&
        relayed.answer.take(now + eachWay, false))
        relayed.clientSpoke = false;
    exchanges += relayed.request.give(now);
    relayed.answer.give(now);
}

Clock::time_point DelayedRelay::State::nextDue() const {
    Clock::time_point next = Clock::now() + std::chrono::seconds(10);
    for (const Relayed& relayed : all)
        for (const Way* way : {&relayed.request, &relayed.answer})
            if (!way->closed && !way->blocked && !way->packets.empty())
                next = std::min(next, way->packets.front().due);
    return next;
}

void DelayedRelay::State::run() {
    for (;;) {
        std::vector<pollfd> polled{{wake[0], POLLIN, 0}, {listener, POLLIN, 0}};
        for (const Relayed& relayed : all)
            for (const auto& [in, out] : {std::pair(&relayed.request, &relayed.answer),
                                          std::pair(&relayed.answer, &relayed.request)}) {
                const int events = (in->reads() ? POLLIN : 0) | (out->blocked ? POLLOUT : 0);
                polled.push_back({events == 0 ? -1 : in->from, static_cast<short>(events), 0});
            }
        const auto left = std::max(Clock::duration(0), nextDue() - Clock::now());
        const auto whole = std::chrono::floor<std::chrono::seconds>(left);
        const timespec wait{static_cast<time_t>(whole.count()),
                            static_cast<long>(std::chrono::nanoseconds(left - whole).count())};
        if (ppoll(polled.data(), polled.size(), &wait, nullptr) < 0)
            continue;
        if (polled[0].revents != 0)
            return;
        const pollfd* one = &polled[2];
        for (Relayed& relayed : all) {
            serve(relayed, one);
            one += 2;
        }
        if (polled[1].revents != 0)
            accept();
        all.remove_if([](const Relayed& relayed) {
            const bool over = relayed.request.closed && relayed.answer.closed;
            if (over) {
                close(relayed.request.from);
                close(relayed.request.to);
            }
            return over;
        });
    }
}

DelayedRelay::DelayedRelay(unsigned short port, unsigned short target, std::chrono::milliseconds eachWay)
    : state_(std::make_unique<State>(port, target, eachWay)) {}

DelayedRelay::~DelayedRelay() = default;

unsigned short DelayedRelay::port() const {
    return state_->port;
}

int DelayedRelay::connections() const {
    return state_->connections;
}

int DelayedRelay::exchanges() const {
    return state_->exchanges;
}

} // namespace scripted
