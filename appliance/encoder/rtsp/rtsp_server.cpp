#include "appliance/encoder/rtsp/rtsp_server.h"

#include "appliance/encoder/base/gstreamer.h"
#include "appliance/encoder/base/log.h"
#include "appliance/encoder/device/device.h"
#include "appliance/encoder/network/tls_relay.h"
#include "appliance/encoder/rtsp/rtsp_channel.h"
#include "appliance/encoder/rtsp/served_connection.h"
#include "appliance/serving/media_path.h"

#include <atomic>
#include <condition_variable>
#include <fcntl.h>
#include <gio/gio.h>
#include <mutex>
#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr guint maxBodyBytes = 64 * 1024;
constexpr guint sessionCheckSeconds = 5;
constexpr int idleSeconds = 60; // for a connection without a session

char* decimalSessionId(GstRTSPSessionPool* /*pool*/) {
    return g_strdup_printf("%d", g_random_int_range(10000000, 100000000));
}

GstRTSPSessionPool* makeSessionPool(bool decimal) {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_RTSP_SESSION_POOL, "EncoderSessionPool", sizeof(GstRTSPSessionPoolClass),
        [](gpointer pool, gpointer /*unused*/) {
            GST_RTSP_SESSION_POOL_CLASS(pool)->create_session_id = decimalSessionId;
        },
        sizeof(GstRTSPSessionPool), nullptr, static_cast<GTypeFlags>(0));
    return decimal ? static_cast<GstRTSPSessionPool*>(g_object_new(type, nullptr))
                   : gst_rtsp_session_pool_new();
}

void showTimeout(GstRTSPClient* /*client*/, GstRTSPSession* session, gpointer /*unused*/) {
    g_object_set(session, "timeout-always-visible", TRUE, nullptr);
}

// The library closes its descriptor, so it gets a copy of `socketFd`. `received` is null if nothing was read yet.
GstRTSPConnection* libraryConnection(const Connection& connection, int socketFd, const char* received) {
    const int fd = fcntl(socketFd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    GSocket* socket = g_socket_new_from_fd(fd, nullptr);
    if (socket == nullptr) {
        close(fd);
        return nullptr;
    }
    GstRTSPConnection* made = nullptr;
    gst_rtsp_connection_create_from_socket(socket, connection.peerAddress().c_str(), connection.peerPort(),
                                           received, &made);
    g_object_unref(socket);
    return made;
}

// Something that happens once. Any thread.
class Event {
public:
    void set() {
        const std::lock_guard lock(mutex_);
        set_ = true;
        changed_.notify_all();
    }
    bool isSet() {
        const std::lock_guard lock(mutex_);
        return set_;
    }
    void await() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return set_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

void onClosed(GstRTSPClient* /*client*/, gpointer closed) {
    static_cast<Event*>(closed)->set();
}

// Releases the client on its context's thread, which may still be releasing its own reference.
void release(GstRTSPClient* client, GMainContext* context) {
    struct Release {
        GstRTSPClient* client;
        Event done;
    } release{client, {}};
    g_main_context_invoke(
        context,
        [](gpointer data) -> gboolean {
            auto* self = static_cast<Release*>(data);
            g_object_unref(self->client);
            self->done.set();
            return G_SOURCE_REMOVE;
        },
        &release);
    release.done.await();
}

} // namespace

struct RtspServer::State {
    explicit State(Device& owner);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    GstRTSPClient* makeClient(ServedConnection& connection, GstRTSPConnection* library) const;
    void serve(ServedConnection& connection, GstRTSPConnection* library, GMainContext* shared);
    void cut(int channel);

    Device& device;
    GstRTSPSessionPool* const sessions;
    GstRTSPMountPoints* const mounts = gst_rtsp_mount_points_new();
    GstRTSPThreadPool* const threads = gst_rtsp_thread_pool_new();
    GstRTSPAuth* const checker;
    std::vector<std::unique_ptr<RtspChannel>> channels;

    GMainContext* const context = g_main_context_new(); // for tunnels and for sessions that time out
    std::atomic<bool> ending = false;
    std::thread thread;

    std::mutex mutex;
    std::set<ServedConnection*> connections; // guarded by mutex
};

RtspServer::State::State(Device& owner)
    : device(owner), sessions(makeSessionPool(owner.options.decimalSessions)),
      checker(ServedConnection::makeChecker(owner.options)) {
    for (int i = 0; Channel* channel = device.channel(i); ++i) {
        channels.push_back(std::make_unique<RtspChannel>(
            device.options, mediaPathOf(i), *channel->rtsp, device.faults, channel->rtspPlace,
            [this, i] { cut(i); }, threads));
        GstRTSPMediaFactory* factory = channels.back()->factory();
        g_object_ref(factory);
        gst_rtsp_mount_points_add_factory(mounts, channels.back()->path().c_str(), factory);
    }
    GSource* timeouts = g_timeout_source_new_seconds(sessionCheckSeconds);
    g_source_set_callback(
        timeouts,
        [](gpointer pool) -> gboolean {
            gst_rtsp_session_pool_cleanup(static_cast<GstRTSPSessionPool*>(pool));
            return G_SOURCE_CONTINUE;
        },
        sessions, nullptr);
    g_source_attach(timeouts, context);
    g_source_unref(timeouts);
    thread = std::thread([this] {
        while (!ending)
            g_main_context_iteration(context, TRUE);
    });
}

RtspServer::State::~State() {
    ending = true;
    g_main_context_wakeup(context);
    thread.join();
    g_object_unref(checker);
    g_object_unref(mounts);
    channels.clear();
    g_object_unref(threads);
    g_object_unref(sessions);
    g_main_context_unref(context);
}

GstRTSPClient* RtspServer::State::makeClient(ServedConnection& connection, GstRTSPConnection* library) const {
    GstRTSPClient* client = connection.makeClient();
    gst_rtsp_client_set_session_pool(client, sessions);
    gst_rtsp_client_set_mount_points(client, mounts);
    gst_rtsp_client_set_thread_pool(client, threads);
    gst_rtsp_client_set_auth(client, checker);
    gst_rtsp_client_set_content_length_limit(client, maxBodyBytes);
    g_object_set(client, "post-session-timeout", idleSeconds, nullptr);
    g_signal_connect(client, "new-session", G_CALLBACK(showTimeout), nullptr);
    gst_rtsp_client_set_connection(client, library);
    return client;
}

// Serves on the shared context's thread, or, without one, on this thread with its own context.
void RtspServer::State::serve(ServedConnection& connection, GstRTSPConnection* library,
                              GMainContext* shared) {
    if (library == nullptr) {
        logLine("an RTSP connection cannot be served");
        return;
    }
    GstRTSPClient* client = makeClient(connection, library);
    Event closed;
    g_signal_connect(client, "closed", G_CALLBACK(onClosed), &closed);
    {
        const std::lock_guard lock(mutex);
        connections.insert(&connection);
    }
    if (shared != nullptr) {
        gst_rtsp_client_attach(client, shared);
        closed.await();
        release(client, shared);
    } else {
        GMainContext* own = g_main_context_new();
        gst_rtsp_client_attach(client, own);
        while (!closed.isSet())
            g_main_context_iteration(own, TRUE);
        g_object_unref(client);
        g_main_context_unref(own);
    }
    const std::lock_guard lock(mutex);
    connections.erase(&connection);
}

void RtspServer::State::cut(int channel) {
    const std::lock_guard lock(mutex);
    for (ServedConnection* connection : connections)
        connection->cutIfPlaying(channel);
}

RtspServer::RtspServer(Device& device) {
    startGStreamer();
    state_ = std::make_unique<State>(device);
}

RtspServer::~RtspServer() = default;

void RtspServer::serve(Connection& connection, std::uint64_t number) {
    ServedConnection rtsp(state_->device, state_->channels, connection, number, false);
    state_->serve(rtsp, libraryConnection(connection, connection.fd(), nullptr), nullptr);
}

bool RtspServer::serveTunnel(Connection& connection, std::uint64_t number, const std::string& received,
                             std::optional<int> channel) {
    ServedConnection rtsp(state_->device, state_->channels, connection, number, true);
    // Joins on this thread, because joining may wait for a picture and all tunnels share the other one.
    if (channel && !rtsp.join(*channel))
        return false;
    std::optional<TlsRelay> relay;
    if (connection.underTls())
        relay.emplace(connection);
    GstRTSPConnection* library =
        libraryConnection(connection, relay ? relay->fd() : connection.fd(), received.c_str());
    if (relay)
        relay->closeFd();
    state_->serve(rtsp, library, state_->context);
    // The half without pictures has joined the other one by now, and the library still reads from it.
    if (relay && !channel)
        relay->await();
    return true;
}

std::string RtspServer::describe(int channel, const std::string& localAddress) {
    RtspChannel& found = *state_->channels.at(static_cast<std::size_t>(channel));
    if (!found.join())
        return {};
    std::string text = found.description(localAddress);
    found.leave();
    return text;
}
