#include "appliance/encoder/server/server.h"

#include "appliance/encoder/base/log.h"
#include "appliance/encoder/network/await_protocol.h"
#include "appliance/encoder/server/routes.h"
#include "appliance/serving/bound_socket.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int backlog = 64;
constexpr std::chrono::seconds handshakeTime(5);
constexpr std::chrono::seconds firstByteTime(30);        // for a new client to send its first byte
constexpr std::chrono::milliseconds descriptorPause(50); // when no descriptors are free
constexpr std::size_t controlPlaces = 4;

} // namespace

Server::Server(Device& device) : device_(device) {
    std::signal(SIGPIPE, SIG_IGN);
    if (device.options.offersRtsp())
        rtsp_ = std::make_unique<RtspServer>(device);
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

std::string Server::openDoors() {
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
    return error;
}

std::string Server::startOnvif() {
    const Options& options = device_.options;
    if (!options.onvif)
        return {};
    const std::uint16_t http = port(PortRole::Http);
    onvif_ = std::make_unique<OnvifFacts>(onvifFacts(options, http));
    probes_ = std::make_unique<ProbeResponder>(*onvif_, device_.faults, options.address);
    return probes_->start();
}

std::string Server::start() {
    std::string error = openDoors();
    if (error.empty())
        error = startOnvif();
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

// Waits until the ports have changed, so that the fault is in effect when the caller continues.
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

// A socket cannot stop listening. It is closed, and a new socket is bound to the port without listening.
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
            std::this_thread::sleep_for(descriptorPause);
        return;
    }
    auto connection = std::make_shared<Connection>(fd, door.role == PortRole::Https ? tls_.get() : nullptr);
    const std::lock_guard lock(mutex_);
    // The control port has its own places, so that it still answers when all other connections are taken.
    const std::size_t places = static_cast<std::size_t>(device_.options.maxConnections) +
                               (door.role == PortRole::Control ? controlPlaces : 0);
    if (threads_ >= places) {
        logLine("too many connections: " + connection->peerAddress() + " is turned away");
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
    serveConnection(*connection, number, role);
    const std::lock_guard lock(mutex_);
    connections_.erase(connection);
    --threads_;
    // Under the lock, because the server may be destroyed as soon as it is released.
    changed_.notify_all();
}

void Server::serveConnection(Connection& connection, std::uint64_t number, PortRole role) {
    switch (role) {
    case PortRole::Control:
    case PortRole::Https:
        if (connection.handshake(in(handshakeTime)))
            serveHttp(connection, number, role);
        break;
    case PortRole::Http:
    case PortRole::Rtsp: {
        const std::optional<Protocol> protocol = awaitProtocol(connection, firstByteTime);
        if (!protocol)
            break;
        // If only RTSP over HTTP is offered, plain RTSP must fail, because that is how a decoder finds out.
        if (*protocol == Protocol::Rtsp && device_.options.offersRtspPort())
            rtsp_->serve(connection, number);
        else if (role == PortRole::Http)
            serveHttp(connection, number, role);
        break;
    }
    }
}

void Server::serveHttp(Connection& connection, std::uint64_t number, PortRole role) {
    HttpSession(device_, connection, number, role).run([this](HttpSession& session) {
        serveRequest(session, rtsp_.get(), onvif_.get());
    });
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
        connection->shutdown(); // those accepted in the meantime
    changed_.wait(lock, [this] { return threads_ == 0; });
}
