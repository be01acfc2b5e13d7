#include "appliance/panel/web/connection.h"

#include "appliance/panel/web/request.h"

#include <algorithm>
#include <array>
#include <gio/gnetworking.h>

namespace panel {
namespace {

constexpr std::int64_t second = 1000000;

GPollableInputStream* input(GIOStream* stream) {
    return G_POLLABLE_INPUT_STREAM(g_io_stream_get_input_stream(stream));
}

GPollableOutputStream* output(GIOStream* stream) {
    return G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(stream));
}

std::string refusalText(const HeadCheck& refusal) {
    const std::string body = errorResponse(refusal.status, refusal.reason).body;
    return "HTTP/1.1 " + std::to_string(refusal.status) + " Refused\r\nContent-Type: application/json\r\n" +
           "Content-Length: " + std::to_string(body.size()) +
           "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\nConnection: close\r\n\r\n" +
           body;
}

} // namespace

Connection::Connection(GObjectPointer<GIOStream> stream, GObjectPointer<GSocket> socket, std::string address,
                       const ServerLimits& limits, std::int64_t now)
    : stream_(std::move(stream)), socket_(std::move(socket)), address_(std::move(address)), limits_(limits),
      gate_({limits.headBytes, limits.bodyBytes}), since_(now) {}

Connection::~Connection() {
    cut();
}

gssize Connection::read(char* buffer, gsize size, GError** error) {
    while (!gate_.hasBytes()) {
        if (isOver())
            return farewell(buffer, size);
        if (!gate_.wantsBytes()) {
            g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK, "the answer is not written yet");
            return -1;
        }
        std::array<char, 8192> bytes{};
        GError* failure = nullptr;
        const gssize count = g_pollable_input_stream_read_nonblocking(input(stream_.get()), bytes.data(),
                                                                      bytes.size(), nullptr, &failure);
        if (count < 0 && g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK)) {
            g_propagate_error(error, failure);
            return count;
        }
        const GErrorPointer reset(failure); // a connection that the client has reset is at its end, too
        endOfInput_ = count <= 0;
        gate_.receive({bytes.data(), static_cast<std::size_t>(std::max<gssize>(count, 0))});
        followPhase();
    }
    const std::string passed = gate_.pass(size);
    hadRequest_ = inRequest_ = true;
    std::copy(passed.begin(), passed.end(), buffer);
    return static_cast<gssize>(passed.size());
}

bool Connection::isOver() const {
    return endOfInput_ || !open_ || gate_.phase() == Gate::Phase::Refused;
}

// kept: libsoup 3.2 never lets go of a connection that ends between two requests. So the end looks like one more request.
// libsoup closes the connection after it, and its answer is dropped.
gssize Connection::farewell(char* buffer, gsize size) {
    constexpr std::string_view request = "GET / HTTP/1.0\r\nHost: localhost\r\n\r\n";
    if (inRequest_ || !hadRequest_ || farewell_ || size < request.size())
        return 0;
    farewell_ = true;
    std::copy(request.begin(), request.end(), buffer);
    return static_cast<gssize>(request.size());
}

// Restarts the clock whenever the gate comes to another part of a request.
void Connection::followPhase() {
    switch (gate_.phase()) {
    case Gate::Phase::Idle:
        return;
    case Gate::Phase::Head:
        return waitFor(Wait::Head);
    case Gate::Phase::Body:
        return waitFor(Wait::Body);
    case Gate::Phase::Request:
        return waitFor(Wait::Reply);
    case Gate::Phase::Refused:
        return sendRefusal();
    }
}

void Connection::waitFor(Wait wait) {
    // kept: the first header's time runs from the beginning of the connection, not from its first byte.
    if (wait == wait_ || (wait_ == Wait::NewHead && wait == Wait::Head))
        return;
    wait_ = wait;
    since_ = g_get_monotonic_time();
}

// The answer is short enough for the socket's buffer. If it is not, the client gets none.
void Connection::sendRefusal() {
    const std::string text = refusalText(gate_.refusal());
    g_pollable_output_stream_write_nonblocking(output(stream_.get()), text.data(), text.size(), nullptr,
                                               nullptr);
    endOfInput_ = true;
    drain();
}

// ---- The end -------------------------------------------------------------------------------------------------

void Connection::drain() {
    if (!open_ || draining_ != nullptr)
        return;
    wait_ = Wait::Drain;
    since_ = g_get_monotonic_time();
    g_socket_shutdown(socket_.get(), FALSE, TRUE, nullptr);
    GSource* source = g_socket_create_source(socket_.get(), G_IO_IN, nullptr);
    g_source_set_callback(source, G_SOURCE_FUNC(dropInput), this, nullptr);
    g_source_attach(source, g_main_context_get_thread_default());
    draining_.reset(source);
    untilDone_ = shared_from_this();
}

// One read at a time, so that a client that sends much does not hold the main loop.
gboolean Connection::dropInput(GSocket* socket, GIOCondition /*condition*/, gpointer self) {
    auto* connection = static_cast<Connection*>(self);
    std::array<char, 65536> bytes; // NOLINT(cppcoreguidelines-pro-type-member-init): dropped unread
    GError* failure = nullptr;
    const gssize count =
        g_socket_receive_with_blocking(socket, bytes.data(), bytes.size(), FALSE, nullptr, &failure);
    const GErrorPointer error(failure);
    if (count > 0)
        connection->dropped_ += static_cast<std::size_t>(count);
    const bool waits = count < 0 && g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK);
    if ((count <= 0 && !waits) || connection->dropped_ > connection->limits_.drainBytes)
        connection->cut();
    return G_SOURCE_CONTINUE; // a source that was destroyed meanwhile ends all the same
}

gssize Connection::write(const char* data, gsize size, GError** error) {
    if (farewell_)
        return static_cast<gssize>(size);
    const gssize count =
        g_pollable_output_stream_write_nonblocking(output(stream_.get()), data, size, nullptr, error);
    if (count > 0)
        since_ = g_get_monotonic_time();
    return count;
}

bool Connection::isReadable() const {
    return gate_.hasBytes() || endOfInput_ || !open_ ||
           g_pollable_input_stream_is_readable(input(stream_.get()));
}

GSource* Connection::readSource() const {
    if (gate_.hasBytes() || endOfInput_ || !open_)
        return g_timeout_source_new(0);
    return g_pollable_input_stream_create_source(input(stream_.get()), nullptr);
}

void Connection::answered() {
    inRequest_ = false;
    if (farewell_ || draining_ != nullptr)
        return;
    gate_.answered();
    wait_ = Wait::Idle;
    since_ = g_get_monotonic_time();
    followPhase();
}

void Connection::closedByLibrary() {
    if (eventStream_)
        return;
    libraryClosed_ = true;
    if (endOfInput_ && draining_ == nullptr)
        cut(); // the client has closed its end already
    else
        drain();
    if (!open_)
        g_socket_close(socket_.get(), nullptr); // kept: libsoup keeps its objects longer than the connection
}

unsigned Connection::longestWait() const {
    switch (wait_) {
    case Wait::NewHead:
    case Wait::Head:
        return limits_.headSeconds;
    case Wait::Body:
        return limits_.bodySeconds;
    case Wait::Idle:
        return limits_.idleSeconds;
    case Wait::Reply:
        return limits_.answerSeconds;
    case Wait::Drain:
        return limits_.drainSeconds;
    }
    return 0;
}

void Connection::checkTime(std::int64_t now) {
    if (!open_ || eventStream_ || now - since_ < longestWait() * second)
        return;
    if (wait_ == Wait::Head || wait_ == Wait::Body ||
        (wait_ == Wait::NewHead && gate_.phase() == Gate::Phase::Head)) {
        gate_.refuse(408, "The request took too long");
        sendRefusal();
    } else {
        cut();
    }
}

// A socket that libsoup still reads is only shut down: libsoup sees the end and closes its streams.
void Connection::cut() {
    if (!open_)
        return;
    open_ = false;
    const std::shared_ptr<Connection> kept = std::move(untilDone_); // maybe the last owner
    draining_.reset();
    g_socket_shutdown(socket_.get(), TRUE, TRUE, nullptr);
    if (libraryClosed_)
        g_socket_close(socket_.get(), nullptr);
}

} // namespace panel
