#include "tests/support/disturbed_host.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace scripted {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int lookMs = 50;
constexpr int httpPort = 80;
constexpr int rtspPort = 554;

sockaddr_in placeOf(const std::string& address, int port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &place.sin_addr);
    return place;
}

class Socket {
public:
    explicit Socket(int type) : fd_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {}
    explicit Socket(int fd, bool /*taken*/) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0)
            close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return fd_; }
    bool bindTo(const sockaddr_in& place) const {
        return bind(fd_, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
    }
    bool connectTo(const sockaddr_in& place) const {
        return connect(fd_, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
    }

private:
    int fd_;
};

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// Two neighbouring UDP ports of the relay's own address, in place of the client's.
struct Ports {
    Ports(const std::string& address, const sockaddr_in& client, int clientPort)
        : data(SOCK_DGRAM), control(SOCK_DGRAM), to(client), toPort(clientPort) {
        for (int port = 30000; port < 32000; port += 2) {
            if (!data.bindTo(placeOf(address, port)) || !control.bindTo(placeOf(address, port + 1)))
                continue;
            own = port;
            return;
        }
    }
    void pass(const Socket& from, std::string_view bytes, int shift) const {
        sockaddr_in place = to;
        place.sin_port = htons(static_cast<std::uint16_t>(toPort + shift));
        sendto(from.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&place),
               sizeof place);
    }

    Socket data;
    Socket control;
    sockaddr_in to;
    int toPort;
    int own = 0;
};

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    if (const std::size_t at = text.find(from); at != std::string::npos)
        text.replace(at, from.size(), to);
    return text;
}

std::string pairText(int port) {
    return "client_port=" + std::to_string(port) + "-" + std::to_string(port + 1);
}

} // namespace

struct DisturbedHost::State {
    State(std::string own, std::string behind) : address(std::move(own)), encoder(std::move(behind)) {}

    void listenOn(int port) {
        auto listener = std::make_shared<Socket>(SOCK_STREAM);
        const int yes = 1;
        setsockopt(listener->get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (!listener->bindTo(placeOf(address, port)) || listen(listener->get(), 16) != 0)
            throw std::runtime_error("can't listen on " + address + ":" + std::to_string(port));
        start([this, listener, port] {
            while (!ending) {
                pollfd ready{listener->get(), POLLIN, 0};
                if (poll(&ready, 1, lookMs) <= 0)
                    continue;
                sockaddr_in client{};
                socklen_t size = sizeof client;
                const int fd =
                    accept4(listener->get(), reinterpret_cast<sockaddr*>(&client), &size, SOCK_CLOEXEC);
                if (fd >= 0)
                    start([this, fd, client, port] { relay(Socket(fd, true), client, port); });
            }
        });
    }

    // Threads that are over are joined here, so that only those of present connections are kept.
    void start(std::function<void()> run) {
        const std::lock_guard guard(lock);
        std::erase_if(threads, [](Runner& one) {
            if (!*one.over)
                return false;
            one.thread.join();
            return true;
        });
        auto over = std::make_shared<std::atomic<bool>>(false);
        threads.push_back({over, std::thread([over, run = std::move(run)] {
                               run();
                               *over = true;
                           })});
    }

    // Until now, or until the network has no delay any more.
    void holdBack() const {
        const auto until = Clock::now() + std::chrono::milliseconds(delayMs);
        while (!ending && delayMs > 0 && Clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    void relay(const Socket& client, const sockaddr_in& from, int port) {
        const Socket server(SOCK_STREAM);
        // The encoder sends the packets to where the connection comes from.
        if (!server.bindTo(placeOf(address, 0)) || !server.connectTo(placeOf(encoder, port)))
            return;
        std::optional<Ports> ports;
        Packets packets{*this};
        const int cutsBefore = cuts;
        while (!ending && cuts == cutsBefore) {
            std::array<pollfd, 4> ready{{{client.get(), POLLIN, 0},
                                         {server.get(), POLLIN, 0},
                                         {ports ? ports->data.get() : -1, POLLIN, 0},
                                         {ports ? ports->control.get() : -1, POLLIN, 0}}};
            if (poll(ready.data(), ready.size(), packets.waiting.empty() ? lookMs : 1) < 0)
                return;
            if (ports)
                packets.sendDue(*ports);
            if (ready[0].revents != 0 && !passRequest(client, server, from, ports))
                return;
            if (ready[1].revents != 0 && !passAnswer(client, server, ports))
                return;
            if (ports && ready[2].revents != 0)
                packets.take(*ports, receive(ports->data));
            if (ports && ready[3].revents != 0)
                ports->pass(ports->control, receive(ports->control), 1);
        }
    }

    static std::string receive(const Socket& from) {
        std::string bytes(65536, '\0');
        bytes.resize(
            static_cast<std::size_t>(std::max<ssize_t>(recv(from.get(), bytes.data(), bytes.size(), 0), 0)));
        return bytes;
    }

    bool passRequest(const Socket& client, const Socket& server, const sockaddr_in& from,
                     std::optional<Ports>& ports) const {
        std::string text = receive(client);
        const std::string key = "client_port=";
        if (const std::size_t at = text.find(key); at != std::string::npos) {
            const int wanted = std::atoi(text.c_str() + at + key.size());
            ports.emplace(address, from, wanted);
            text = replaced(text, pairText(wanted), pairText(ports->own));
        }
        return !text.empty() && sendAll(server.get(), text);
    }
    bool passAnswer(const Socket& client, const Socket& server, const std::optional<Ports>& ports) const {
        std::string text = receive(server);
        holdBack();
        if (ports)
            text = replaced(text, pairText(ports->own), pairText(ports->toPort));
        return !text.empty() && sendAll(client.get(), text);
    }

    // Of one session.
    struct Packets {
        State& state;
        int count = 0;
        std::deque<std::pair<Clock::time_point, std::string>> waiting{}; // until their time
        std::string held{};                                              // waits for the next one
        std::optional<std::size_t> session{};

        void take(const Ports& ports, const std::string& packet) {
            ++count;
            if (count % state.lostEach == 0)
                return;
            if (count % state.swappedEach == 0 && held.empty()) {
                held = packet;
                return;
            }
            out(ports, packet);
            if (!held.empty())
                out(ports, std::exchange(held, {}));
        }
        void out(const Ports& ports, const std::string& packet) {
            if (packet.size() < 4)
                return;
            {
                const std::lock_guard guard(state.lock);
                if (!session) {
                    session = state.sessions.size();
                    state.sessions.emplace_back();
                }
                state.sessions[*session].push_back(static_cast<std::uint16_t>(
                    static_cast<std::uint8_t>(packet[2]) << 8 | static_cast<std::uint8_t>(packet[3])));
            }
            waiting.emplace_back(Clock::now() + std::chrono::milliseconds(state.delayMs), packet);
            sendDue(ports);
        }
        void sendDue(const Ports& ports) {
            for (; !waiting.empty() && waiting.front().first <= Clock::now(); waiting.pop_front())
                ports.pass(ports.data, waiting.front().second, 0);
        }
    };

    const std::string address;
    const std::string encoder;
    std::atomic<bool> ending{false};
    std::atomic<int> cuts{0};
    std::atomic<int> lostEach{Disturbance().lostEach};
    std::atomic<int> swappedEach{Disturbance().swappedEach};
    std::atomic<int> delayMs{0};
    std::mutex lock; // guards what follows
    struct Runner {
        std::shared_ptr<std::atomic<bool>> over;
        std::thread thread;
    };
    std::vector<Runner> threads;
    std::vector<std::vector<std::uint16_t>> sessions;
};

DisturbedHost::DisturbedHost(const std::string& address, const std::string& encoder)
    : state_(std::make_unique<State>(address, encoder)) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    state_->listenOn(httpPort);
    state_->listenOn(rtspPort);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

DisturbedHost::~DisturbedHost() {
    state_->ending = true;
    for (std::size_t i = 0;; ++i) {
        std::thread thread;
        {
            const std::lock_guard guard(state_->lock);
            if (i >= state_->threads.size())
                break;
            thread = std::move(state_->threads[i].thread);
        }
        thread.join();
    }
}

void DisturbedHost::disturb(const Disturbance& disturbance) {
    state_->lostEach = std::max(disturbance.lostEach, 1);
    state_->swappedEach = std::max(disturbance.swappedEach, 2);
    state_->delayMs = disturbance.delayMs;
}

void DisturbedHost::cut() {
    ++state_->cuts;
}

std::vector<std::vector<std::uint16_t>> DisturbedHost::sessions() const {
    const std::lock_guard guard(state_->lock);
    return state_->sessions;
}

} // namespace scripted
