// One event stream: writes what waits for a listener as fast as the client takes it.
#pragma once

#include "appliance/panel/web/connection.h"
#include "appliance/panel/web/event_queue.h"
#include "appliance/panel/web/event_streams.h"
#include "appliance/panel/web/source_handle.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace panel {

class EventListener {
public:
    // `ended` is called at most once, from a function of GLib's main loop, when the client has gone or is cut. It may
    // destroy the listener. `head` is the answer's header.
    EventListener(std::shared_ptr<Connection> connection, ListenerInfo info, const StreamLimits& limits,
                  std::string head, std::function<void(const EventListener*)> ended);
    ~EventListener(); // closes the connection
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;

    const ListenerInfo& info() const { return info_; }

    void send(std::string_view type, std::string_view json);
    // Cuts a client that has taken nothing for too long. `now` as from g_get_monotonic_time().
    void checkTime(std::int64_t now);
    // Sends what waits as far as the client takes it at once, and closes.
    void end();

private:
    static gboolean canWrite(GObject* stream, gpointer self);
    static gboolean canRead(GObject* stream, gpointer self);
    void watchWriting();
    void watchReading();
    void write();
    void finish();

    std::shared_ptr<Connection> connection_;
    ListenerInfo info_;
    StreamLimits limits_;
    std::function<void(const EventListener*)> ended_;
    EventQueue queue_;
    std::string sending_;      // taken from the queue
    std::size_t sent_ = 0;     // of it
    std::int64_t stalled_ = 0; // since when the client takes nothing; 0: it takes everything
    bool finished_ = false;
    SourceHandle writing_;
    SourceHandle reading_;
};

} // namespace panel
