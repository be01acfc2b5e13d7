#include "appliance/panel/web/event_listener.h"

#include <array>

namespace panel {
namespace {

constexpr std::int64_t second = 1000000;

GPollableInputStream* input(const Connection& connection) {
    return G_POLLABLE_INPUT_STREAM(g_io_stream_get_input_stream(connection.stream()));
}

GPollableOutputStream* output(const Connection& connection) {
    return G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(connection.stream()));
}

bool wouldBlock(const GErrorPointer& error) {
    return error != nullptr && g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK);
}

} // namespace

EventListener::EventListener(std::shared_ptr<Connection> connection, ListenerInfo info,
                             const StreamLimits& limits, std::string head,
                             std::function<void(const EventListener*)> ended)
    : connection_(std::move(connection)), info_(std::move(info)), limits_(limits), ended_(std::move(ended)),
      queue_(limits.mostQueued), sending_(std::move(head)) {
    watchWriting();
    watchReading();
}

EventListener::~EventListener() {
    connection_->cut();
}

void EventListener::watchWriting() {
    if (writing_ != nullptr || finished_)
        return;
    GSource* source = g_pollable_output_stream_create_source(output(*connection_), nullptr);
    g_source_set_callback(source, G_SOURCE_FUNC(canWrite), this, nullptr);
    g_source_attach(source, g_main_context_get_thread_default());
    writing_.reset(source);
}

// A client says nothing on an event stream. So a readable connection is one that the client has closed.
void EventListener::watchReading() {
    GSource* source = g_pollable_input_stream_create_source(input(*connection_), nullptr);
    g_source_set_callback(source, G_SOURCE_FUNC(canRead), this, nullptr);
    g_source_attach(source, g_main_context_get_thread_default());
    reading_.reset(source);
}

gboolean EventListener::canWrite(GObject* /*stream*/, gpointer self) {
    static_cast<EventListener*>(self)->write();
    return G_SOURCE_CONTINUE; // a source that was destroyed meanwhile ends all the same
}

gboolean EventListener::canRead(GObject* /*stream*/, gpointer self) {
    auto* listener = static_cast<EventListener*>(self);
    std::array<char, 256> bytes{};
    GError* failure = nullptr;
    const gssize count = g_pollable_input_stream_read_nonblocking(input(*listener->connection_), bytes.data(),
                                                                  bytes.size(), nullptr, &failure);
    const GErrorPointer error(failure);
    if (count >= 0 || !wouldBlock(error))
        listener->finish();
    return G_SOURCE_CONTINUE;
}

void EventListener::write() {
    while (!finished_) {
        if (sent_ == sending_.size()) {
            sending_ = queue_.take();
            sent_ = 0;
        }
        if (sending_.empty()) {
            stalled_ = 0;
            writing_.reset();
            return;
        }
        GError* failure = nullptr;
        const gssize count = g_pollable_output_stream_write_nonblocking(
            output(*connection_), sending_.data() + sent_, sending_.size() - sent_, nullptr, &failure);
        const GErrorPointer error(failure);
        if (wouldBlock(error))
            return;
        if (count < 0)
            return finish();
        sent_ += static_cast<std::size_t>(count);
        stalled_ = g_get_monotonic_time();
    }
}

void EventListener::send(std::string_view type, std::string_view json) {
    if (finished_)
        return;
    if (stalled_ == 0)
        stalled_ = g_get_monotonic_time();
    queue_.add(type, json);
    watchWriting();
}

void EventListener::checkTime(std::int64_t now) {
    const bool stalls = stalled_ != 0 && now - stalled_ > limits_.longestStall * second;
    if (stalls || queue_.bytes() > limits_.mostWaiting)
        finish();
}

void EventListener::end() {
    write();
    finish();
}

void EventListener::finish() {
    if (finished_)
        return;
    finished_ = true;
    writing_.reset();
    reading_.reset();
    connection_->cut();
    const auto ended = ended_; // the call may destroy this
    ended(this);
}

} // namespace panel
