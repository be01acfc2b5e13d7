#include "appliance/panel/web/server.h"

#include "appliance/panel/web/connections.h"
#include "appliance/panel/web/dispatch.h"
#include "appliance/panel/web/event_listener.h"
#include "appliance/panel/web/exchange.h"

#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unordered_map>

namespace panel {
namespace {

constexpr const char* streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\nCross-Origin-Resource-Policy: same-origin\r\n"
    "Referrer-Policy: no-referrer\r\nConnection: close\r\n\r\n";

std::string numericAddress(GSocketAddress* address) {
    if (!G_IS_INET_SOCKET_ADDRESS(address))
        return {};
    char* text = g_inet_address_to_string(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(address)));
    std::string result(text);
    g_free(text);
    constexpr std::string_view mapped = "::ffff:";
    return result.starts_with(mapped) && result.find('.') != std::string::npos ? result.substr(mapped.size())
                                                                               : result;
}

std::runtime_error failureOf(GError* error, const std::string& what) {
    const GErrorPointer owned(error);
    return std::runtime_error(what + ": " + owned->message);
}

} // namespace

struct Server::State {
    State(ServerOptions given, const Router& routes, EventStreams& events, Identify who)
        : options(std::move(given)), router(routes), streams(events), identify(std::move(who)),
          connections(options.limits) {}

    ServerOptions options;
    const Router& router;
    EventStreams& streams;
    Identify identify;
    Connections connections;
    std::array<GObjectPointer<GSocket>, 2> silent; // see makeSoup()
    GObjectPointer<SoupServer> soup;
    GObjectPointer<GSocketService> service;
    GObjectPointer<GTlsCertificate> certificate;
    // By libsoup's object for the client's address, which is a new one for each connection.
    std::unordered_map<gpointer, std::weak_ptr<Connection>> byAddress;
    std::unordered_map<SoupServerMessage*, std::weak_ptr<Exchange>> exchanges;
    std::uint16_t port = 0;

    void makeSoup();
    void loadCertificate();
    void listen();
    void accept(GSocketConnection* client);
    void serve(const std::shared_ptr<Connection>& connection, GSocketConnection* client);
    std::shared_ptr<Connection> connectionOf(SoupServerMessage* message);
    void handle(SoupServerMessage* message);
    Response checkAndRun(const std::shared_ptr<Exchange>& exchange);
    void beginStream(const std::shared_ptr<Exchange>& exchange, const Visitor& visitor);
    void finished(SoupServerMessage* message);

    static void onHandle(SoupServer* soup, SoupServerMessage* message, const char* path, GHashTable* query,
                         gpointer self);
    static void onFinished(SoupServer* soup, SoupServerMessage* message, gpointer self);
    static gboolean onIncoming(GSocketService* service, GSocketConnection* client, GObject* source,
                               gpointer self);
};

// ---- Listening -----------------------------------------------------------------------------------------------

// kept: libsoup closes each connection after one answer unless it listens itself. Connections come from accept() here, so
// it listens on one end of a pair of sockets, and the other end says nothing.
void Server::State::makeSoup() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "can't make sockets");
    GError* error = nullptr;
    for (std::size_t end = 0; end < ends.size(); ++end) {
        silent[end].reset(g_socket_new_from_fd(ends[end], &error)); // owns the descriptor
        if (silent[end] == nullptr)
            throw failureOf(error, "can't make sockets");
    }
    soup.reset(soup_server_new(nullptr, nullptr));
    if (!soup_server_listen_socket(soup.get(), silent[0].get(), SoupServerListenOptions{}, &error))
        throw failureOf(error, "can't start the server");
    soup_server_add_handler(soup.get(), nullptr, onHandle, this, nullptr);
    g_signal_connect(soup.get(), "request-finished", G_CALLBACK(onFinished), this);
    g_signal_connect(soup.get(), "request-aborted", G_CALLBACK(onFinished), this);
}

void Server::State::loadCertificate() {
    if (options.certificate.empty())
        return;
    GError* error = nullptr;
    certificate.reset(
        g_tls_certificate_new_from_files(options.certificate.c_str(), options.key.c_str(), &error));
    if (certificate == nullptr)
        throw failureOf(error, "the certificate " + options.certificate + " can't be used");
}

void Server::State::listen() {
    const GObjectPointer<GSocketAddress> wanted(
        g_inet_socket_address_new_from_string(options.address.c_str(), options.port));
    if (wanted == nullptr)
        throw std::runtime_error("\"" + options.address + "\" is not a numeric address");
    service.reset(g_socket_service_new());
    GSocketAddress* bound = nullptr;
    GError* error = nullptr;
    if (!g_socket_listener_add_address(G_SOCKET_LISTENER(service.get()), wanted.get(), G_SOCKET_TYPE_STREAM,
                                       G_SOCKET_PROTOCOL_TCP, nullptr, &bound, &error))
        throw failureOf(error,
                        "can't listen on " + options.address + " port " + std::to_string(options.port));
    const GObjectPointer<GSocketAddress> real(bound);
    port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(real.get()));
    g_signal_connect(service.get(), "incoming", G_CALLBACK(onIncoming), this);
    g_socket_service_start(service.get());
}

// ---- Connections ---------------------------------------------------------------------------------------------

gboolean Server::State::onIncoming(GSocketService* /*service*/, GSocketConnection* client,
                                   GObject* /*source*/, gpointer self) {
    static_cast<State*>(self)->accept(client);
    return TRUE;
}

void Server::State::accept(GSocketConnection* client) {
    const GObjectPointer<GSocketAddress> remote(g_socket_connection_get_remote_address(client, nullptr));
    const std::string address = numericAddress(remote.get());
    if (address.empty() || !connections.makeRoom(address))
        return; // the socket closes with its last reference
    GObjectPointer<GIOStream> stream = shared(G_IO_STREAM(client));
    if (certificate != nullptr)
        stream.reset(g_tls_server_connection_new(G_IO_STREAM(client), certificate.get(), nullptr));
    if (stream == nullptr)
        return;
    // Header and body of an answer are two writes; the second must not wait for the client's word about the first.
    g_socket_set_option(g_socket_connection_get_socket(client), IPPROTO_TCP, TCP_NODELAY, 1, nullptr);
    const auto connection =
        std::make_shared<Connection>(std::move(stream), shared(g_socket_connection_get_socket(client)),
                                     address, connections.limits(), g_get_monotonic_time());
    connections.add(connection);
    serve(connection, client);
}

// TLS shakes hands when libsoup reads for the first time.
void Server::State::serve(const std::shared_ptr<Connection>& connection, GSocketConnection* client) {
    const GObjectPointer<GSocketAddress> local(g_socket_connection_get_local_address(client, nullptr));
    const GObjectPointer<GSocketAddress> remote(g_socket_connection_get_remote_address(client, nullptr));
    if (local == nullptr || remote == nullptr)
        return;
    std::erase_if(byAddress, [](const auto& entry) { return entry.second.expired(); });
    byAddress[remote.get()] = connection;
    const GObjectPointer<GIOStream> stream = libraryStream(connection);
    soup_server_accept_iostream(soup.get(), stream.get(), local.get(), remote.get(), nullptr);
}

std::shared_ptr<Connection> Server::State::connectionOf(SoupServerMessage* message) {
    const auto found = byAddress.find(soup_server_message_get_remote_address(message));
    return found == byAddress.end() ? nullptr : found->second.lock();
}

// ---- Requests ------------------------------------------------------------------------------------------------

void Server::State::onHandle(SoupServer* /*soup*/, SoupServerMessage* message, const char* /*path*/,
                             GHashTable* /*query*/, gpointer self) {
    static_cast<State*>(self)->handle(message);
}

void Server::State::onFinished(SoupServer* /*soup*/, SoupServerMessage* message, gpointer self) {
    static_cast<State*>(self)->finished(message);
}

void Server::State::finished(SoupServerMessage* message) {
    if (const auto found = exchanges.find(message); found != exchanges.end()) {
        if (const auto exchange = found->second.lock(); exchange != nullptr)
            exchange->drop();
        exchanges.erase(found);
    }
    if (const auto connection = connectionOf(message); connection != nullptr)
        connection->answered();
}

void Server::State::handle(SoupServerMessage* message) {
    const std::shared_ptr<Connection> connection = connectionOf(message);
    if (connection == nullptr)
        return soup_server_message_set_status(message, 500, nullptr);
    if (connection->isFarewell())
        return soup_server_message_set_status(message, 204, nullptr);
    const auto exchange = std::make_shared<Exchange>(message, connection);
    exchanges[message] = exchange;
    if (const Response refusal = checkAndRun(exchange); refusal.status != 0)
        exchange->answer(refusal);
}

// Returns a refusal, or status 0 when the request has its handler.
Response Server::State::checkAndRun(const std::shared_ptr<Exchange>& exchange) {
    SoupServerMessage* message = exchange->message();
    const std::unique_ptr<Request> request = readRequest(message);
    if (request == nullptr)
        return errorResponse(400, "The address or the form has a text that can't be decoded");
    request->address = exchange->connection()->address();
    const Place place{numericAddress(soup_server_message_get_local_address(message)), certificate != nullptr,
                      &options.hosts};
    const Dispatched found =
        dispatch(*request, g_uri_get_path(soup_server_message_get_uri(message)), place, router, identify);
    if (found.route == nullptr)
        return found.refusal;
    if (found.visitor.role != Role::None)
        exchange->connection()->setKnown();
    Response handled;
    handled.status = 0;
    if (found.route->rules.eventStream) {
        if (streams.count() >= streams.limits().mostListeners)
            return errorResponse(503, "Too many pages watch already");
        beginStream(exchange, found.visitor);
        return handled;
    }
    exchange->hold();
    found.route->handler(*request, [exchange](const Response& response) { exchange->answer(response); });
    return handled;
}

// libsoup gives the connection away, and the listener has it from here on.
void Server::State::beginStream(const std::shared_ptr<Exchange>& exchange, const Visitor& visitor) {
    const std::shared_ptr<Connection> connection = exchange->connection();
    SoupServerMessage* message = exchange->message();
    const GObjectPointer<SoupServerMessage> kept = shared(message);
    const bool headOnly = std::string_view(soup_server_message_get_method(message)) == "HEAD";
    connection->becomeEventStream();
    exchange->drop();
    const GObjectPointer<GIOStream> stream(soup_server_message_steal_connection(message));
    auto listener = std::make_shared<EventListener>(
        connection, ListenerInfo{visitor.role, visitor.account, visitor.session}, streams.limits(),
        streamHead, [this](const EventListener* ended) { streams.remove(ended); });
    if (headOnly)
        return listener->end();
    streams.add(std::move(listener));
}

Server::Server(ServerOptions options, const Router& router, EventStreams& streams, Identify identify)
    : state_(std::make_unique<State>(std::move(options), router, streams, std::move(identify))) {}

Server::~Server() {
    if (state_->service != nullptr)
        g_socket_service_stop(state_->service.get());
    state_->streams.endAll();
    if (state_->soup != nullptr) {
        g_signal_handlers_disconnect_by_data(state_->soup.get(), state_.get());
        soup_server_disconnect(state_->soup.get());
    }
    for (const auto& [message, exchange] : state_->exchanges) {
        if (const auto held = exchange.lock(); held != nullptr)
            held->drop();
    }
}

void Server::start() {
    state_->loadCertificate();
    state_->makeSoup();
    state_->listen();
}

std::uint16_t Server::port() const {
    return state_->port;
}

bool Server::isSecure() const {
    return state_->certificate != nullptr;
}

} // namespace panel
