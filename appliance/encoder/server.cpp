#include "appliance/encoder/server.h"

#include "appliance/encoder/log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int backlog = 64;
constexpr std::chrono::seconds handshakeTime(5);
constexpr std::chrono::milliseconds breathingSpace(50); // when the machine has no descriptors left

std::string systemError(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

// A bound socket that does not listen yet: whoever connects to it is refused.
int boundSocket(const std::string& address, std::uint16_t& port, std::string& error) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
        error = "'" + address + "' is not an IPv4 address";
        return -1;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    socklen_t size = sizeof local;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
        error = systemError("cannot use port " + std::to_string(port) + " of " + address);
        close(fd);
        return -1;
    }
    port = ntohs(local.sin_port);
    return fd;
}

} // namespace

Server::Server(Device& device) : device_(device) {
    std::signal(SIGPIPE, SIG_IGN);
}

Server::~Server() {
    stop();
    for (const Door& door : doors_)
        close(door.fd);
    close(wakeFd_);
}

std::string Server::addDoor(PortRole role, std::uint16_t port) {
    std::string error;
    const int fd = boundSocket(device_.options.address, port, error);
    if (fd < 0)
        return error;
    doors_.push_back({role, fd, port, false});
    const bool refuse = role != PortRole::Control && device_.faults.current().has(Fault::Refuse);
    if (refuse)
        return {};
    // Two sockets may share a port until one of them listens.
    if (listen(fd, backlog) != 0)
        return systemError("cannot listen on port " + std::to_string(port) + " of " +
                           device_.options.address);
    doors_.back().open = true;
    return {};
}

std::string Server::start() {
    const Options& options = device_.options;
    std::string error = addDoor(PortRole::Http, options.httpPort);
    if (error.empty() && options.offersRtspPort())
        error = addDoor(PortRole::Rtsp, options.rtspPort);
    if (error.empty() && options.httpsPort) {
        tls_ = makeTlsContext(options.certificateFile, options.keyFile, options.address, error);
        if (error.empty())
            error = addDoor(PortRole::Https, *options.httpsPort);
    }
    if (error.empty() && options.controlPort)
        error = addDoor(PortRole::Control, *options.controlPort);
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (error.empty() && wakeFd_ < 0)
        error = systemError("eventfd");
    if (!error.empty())
        return error;
    refusing_ = refusalApplied_ = device_.faults.current().has(Fault::Refuse);
    device_.faults.onChange([this](const FaultSet& faults) { refuseOrAccept(faults); });
    acceptThread_ = std::thread(&Server::acceptLoop, this);
    return {};
}

std::uint16_t Server::port(PortRole role) const {
    for (const Door& door : doors_) {
        if (door.role == role)
            return door.port;
    }
    return 0;
}

void Server::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wakeFd_, &one, sizeof one);
}

// Returns when it is done: whoever switched the fault can rely on it.
void Server::refuseOrAccept(const FaultSet& faults) {
    std::unique_lock lock(mutex_);
    refusing_ = faults.has(Fault::Refuse);
    if (refusing_) {
        for (const auto& connection : connections_)
            connection->cut();
    }
    wake();
    changed_.wait(lock, [this] { return stopping_ || refusalApplied_ == refusing_; });
}

// A listening socket cannot be told to stop: it is closed, and a new one takes its port without listening.
void Server::applyRefusal() {
    const std::lock_guard lock(mutex_);
    for (Door& door : doors_) {
        if (door.role == PortRole::Control || door.open == !refusing_)
            continue;
        if (refusing_) {
            close(door.fd);
            std::string error;
            door.fd = boundSocket(device_.options.address, door.port, error);
            door.open = false;
            if (door.fd < 0)
                logLine(error);
        } else {
            door.open = listen(door.fd, backlog) == 0;
            if (!door.open)
                logLine(systemError("cannot listen again"));
        }
    }
    refusalApplied_ = refusing_;
    changed_.notify_all();
}

void Server::acceptLoop() {
    while (true) {
        {
            const std::lock_guard lock(mutex_);
            if (stopping_)
                return;
        }
        applyRefusal();
        std::vector<pollfd> pollers{{wakeFd_, POLLIN, 0}};
        for (const Door& door : doors_)
            pollers.push_back({door.open ? door.fd : -1, POLLIN, 0});
        if (poll(pollers.data(), pollers.size(), -1) < 0)
            continue;
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t drained = read(wakeFd_, &count, sizeof count);
        for (std::size_t i = 0; i < doors_.size(); ++i) {
            if ((pollers[i + 1].revents & POLLIN) != 0)
                admit(doors_[i]);
        }
    }
}

void Server::admit(const Door& door) {
    const int fd = accept4(door.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        if (errno == EMFILE || errno == ENFILE)
            std::this_thread::sleep_for(breathingSpace);
        return;
    }
    auto connection = std::make_shared<Connection>(fd, door.role == PortRole::Https ? tls_.get() : nullptr);
    const std::lock_guard lock(mutex_);
    // The control port has a few places of its own, or a full encoder could not be asked why.
    const std::size_t places =
        static_cast<std::size_t>(device_.options.maxConnections) + (door.role == PortRole::Control ? 4 : 0);
    if (threads_ >= places) {
        logLine("too many connections: one from " + connection->peerAddress() + " is turned away");
        return;
    }
    if (refusing_ && door.role != PortRole::Control) {
        connection->abortOnClose();
        return;
    }
    try {
        std::thread(&Server::serve, this, connection, nextNumber_++, door.role).detach();
    } catch (const std::system_error& error) {
        logLine(std::string("cannot start a thread: ") + error.what());
        return;
    }
    ++threads_;
    connections_.insert(std::move(connection));
}

void Server::serve(const std::shared_ptr<Connection>& connection, std::uint64_t number, PortRole role) {
    if (device_.options.verbosity > 1)
        logLine("connection " + std::to_string(number) + " from " + connection->peerAddress());
    if (role == PortRole::Rtsp)
        device_.rtsp()->serve(*connection, number);
    else if (connection->handshake(in(handshakeTime)))
        HttpSession(device_, *connection, number, role).run();
    const std::lock_guard lock(mutex_);
    connections_.erase(connection);
    --threads_;
    // Under the lock: the server may be gone as soon as it is released.
    changed_.notify_all();
}

void Server::stop() {
    {
        const std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        stopping_ = true;
        device_.stop();
        for (const auto& connection : connections_)
            connection->shutdown();
        changed_.notify_all();
    }
    if (!acceptThread_.joinable())
        return;
    wake();
    acceptThread_.join();
    std::unique_lock lock(mutex_);
    for (const auto& connection : connections_)
        connection->shutdown(); // those that came meanwhile
    changed_.wait(lock, [this] { return threads_ == 0; });
}
