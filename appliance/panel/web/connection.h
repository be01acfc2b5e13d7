// One connection of a client: its streams, its gate, and how long it may take.
//
// It exists from the accepted socket to the closed one. libsoup reads and writes through streams that lead here, so that
// the panel sees every byte first and can cut the connection at any time. Main loop's thread only.
//
// The panel closes a connection in two steps. A socket that is closed while the client still sends resets the connection,
// and the client loses the answer that it has not read yet. So after the last answer the panel ends its own direction
// only, and drops what the client sends until the client closes, too: for a bounded time and number of bytes.
#pragma once

#include "appliance/panel/web/g_object_pointer.h"
#include "appliance/panel/web/gate.h"
#include "appliance/panel/web/server_limits.h"
#include "appliance/panel/web/source_handle.h"

#include <cstdint>
#include <gio/gio.h>
#include <memory>
#include <string>

namespace panel {

class Connection : public std::enable_shared_from_this<Connection> {
public:
    // `stream` is the TLS or the socket connection. `now`: microseconds, as from g_get_monotonic_time().
    Connection(GObjectPointer<GIOStream> stream, GObjectPointer<GSocket> socket, std::string address,
               const ServerLimits& limits, std::int64_t now);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const std::string& address() const { return address_; }
    GIOStream* stream() const { return stream_.get(); }
    bool isOpen() const { return open_; }
    bool isKnown() const { return known_; }
    void setKnown() { known_ = true; }

    // For the streams that libsoup uses; with GLib's conventions.
    gssize read(char* buffer, gsize size, GError** error);
    gssize write(const char* data, gsize size, GError** error);
    bool isReadable() const;
    GSource* readSource() const;
    void closedByLibrary();

    // The present request of libsoup is not the client's: see farewell().
    bool isFarewell() const { return farewell_; }
    // The answer to the present request was written.
    void answered();
    // The connection is an event stream from now on: libsoup and the gate have nothing to do with it.
    void becomeEventStream() { eventStream_ = true; }

    // Ends the connection when it has taken too long; `now` as above.
    void checkTime(std::int64_t now);
    // Ends it at once.
    void cut();

private:
    enum class Wait { NewHead, Head, Body, Idle, Reply, Drain };

    static gboolean dropInput(GSocket* socket, GIOCondition condition, gpointer self);

    bool isOver() const;
    gssize farewell(char* buffer, gsize size);
    void followPhase();
    void sendRefusal();
    void drain();
    unsigned longestWait() const;
    void waitFor(Wait wait);

    GObjectPointer<GIOStream> stream_;
    GObjectPointer<GSocket> socket_;
    std::string address_;
    const ServerLimits& limits_;
    Gate gate_;
    Wait wait_ = Wait::NewHead;
    std::int64_t since_;
    bool open_ = true;
    bool known_ = false;
    bool eventStream_ = false;
    bool endOfInput_ = false;
    bool hadRequest_ = false; // libsoup has seen one
    bool inRequest_ = false;  // it has seen a part of the present one
    bool farewell_ = false;
    bool libraryClosed_ = false;
    std::size_t dropped_ = 0;               // bytes, while draining
    SourceHandle draining_;                 // set while draining
    std::shared_ptr<Connection> untilDone_; // this object, while draining: libsoup may have let go of it
};

// The streams for libsoup; they own the connection.
GObjectPointer<GIOStream> libraryStream(const std::shared_ptr<Connection>& connection);

} // namespace panel
