#include "appliance/encoder/rtsp_server.h"

#include "appliance/encoder/device.h"
#include "appliance/encoder/gst_source.h"
#include "appliance/encoder/http_message.h"
#include "appliance/encoder/log.h"
#include "appliance/encoder/rtsp_connection.h"
#include "appliance/encoder/rtsp_media.h"

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

constexpr std::string_view pathStart = "/mpeg4/";
constexpr std::string_view pathEnd = "/media.orv";
constexpr guint maxBodyBytes = 64 * 1024;
constexpr guint sessionCheckSeconds = 5;
constexpr int idleSeconds = 60; // of a connection without a session
constexpr std::string_view longestTunnelMethod = "POST ";

std::string pathOf(int channel) {
    return std::string(pathStart) + (channel == 0 ? "quad" : std::to_string(channel)) + std::string(pathEnd);
}

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

// The library's connection closes its descriptor by itself, so it has one of its own.
GstRTSPConnection* libraryConnection(const Connection& connection, const char* begun) {
    const int fd = fcntl(connection.fd(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    GSocket* socket = g_socket_new_from_fd(fd, nullptr);
    if (socket == nullptr) {
        close(fd);
        return nullptr;
    }
    GstRTSPConnection* made = nullptr;
    gst_rtsp_connection_create_from_socket(socket, connection.peerAddress().c_str(), connection.peerPort(),
                                           begun, &made);
    g_object_unref(socket);
    return made;
}

// Something that happens once, on whatever thread.
class Event {
public:
    void come() {
        const std::lock_guard lock(mutex_);
        come_ = true;
        changed_.notify_all();
    }
    bool hasCome() {
        const std::lock_guard lock(mutex_);
        return come_;
    }
    void await() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return come_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool come_ = false;
};

void onClosed(GstRTSPClient* /*client*/, gpointer closed) {
    static_cast<Event*>(closed)->come();
}

// Gives the client up on the thread of its context, which may still be about to let go of it, too.
void giveUp(GstRTSPClient* client, GMainContext* context) {
    struct Parting {
        GstRTSPClient* client;
        Event done;
    } parting{client, {}};
    g_main_context_invoke(
        context,
        [](gpointer data) -> gboolean {
            auto* self = static_cast<Parting*>(data);
            g_object_unref(self->client);
            self->done.come();
            return G_SOURCE_REMOVE;
        },
        &parting);
    parting.done.await();
}

} // namespace

std::optional<int> mediaChannelOf(std::string_view path) {
    if (!path.starts_with(pathStart))
        return std::nullopt;
    path.remove_prefix(pathStart.size());
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    if (!path.starts_with(pathEnd) || (path.size() > pathEnd.size() && path[pathEnd.size()] != '/'))
        return std::nullopt;
    return name == "quad" ? std::optional<int>(0) : wholeNumber(name);
}

struct RtspServer::State {
    explicit State(Device& owner);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    GstRTSPClient* makeClient(RtspConnection& connection, GstRTSPConnection* library) const;
    void serve(RtspConnection& connection, GstRTSPConnection* library, GMainContext* shared);
    void cut(int channel);

    Device& device;
    GstRTSPSessionPool* const sessions;
    GstRTSPMountPoints* const mounts = gst_rtsp_mount_points_new();
    GstRTSPThreadPool* const threads = gst_rtsp_thread_pool_new();
    GstRTSPAuth* const judge;
    std::vector<std::unique_ptr<RtspChannel>> channels;

    GMainContext* const context = g_main_context_new(); // of tunnels and of sessions that time out
    std::atomic<bool> ending = false;
    std::thread thread;

    std::mutex mutex;
    std::set<RtspConnection*> connections; // guarded by mutex
};

RtspServer::State::State(Device& owner)
    : device(owner), sessions(makeSessionPool(owner.options.decimalSessions)),
      judge(RtspConnection::makeJudge(owner.options)) {
    for (int i = 0; Channel* channel = device.channel(i); ++i) {
        channels.push_back(std::make_unique<RtspChannel>(
            device.options, pathOf(i), *channel->rtsp, device.faults, channel->rtspPlace,
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
    g_object_unref(judge);
    g_object_unref(mounts);
    channels.clear();
    g_object_unref(threads);
    g_object_unref(sessions);
    g_main_context_unref(context);
}

GstRTSPClient* RtspServer::State::makeClient(RtspConnection& connection, GstRTSPConnection* library) const {
    GstRTSPClient* client = connection.makeClient();
    gst_rtsp_client_set_session_pool(client, sessions);
    gst_rtsp_client_set_mount_points(client, mounts);
    gst_rtsp_client_set_thread_pool(client, threads);
    gst_rtsp_client_set_auth(client, judge);
    gst_rtsp_client_set_content_length_limit(client, maxBodyBytes);
    g_object_set(client, "post-session-timeout", idleSeconds, nullptr);
    g_signal_connect(client, "new-session", G_CALLBACK(showTimeout), nullptr);
    gst_rtsp_client_set_connection(client, library);
    return client;
}

// On the shared context's thread, or on a context of its own and on this thread.
void RtspServer::State::serve(RtspConnection& connection, GstRTSPConnection* library, GMainContext* shared) {
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
        giveUp(client, shared);
    } else {
        GMainContext* own = g_main_context_new();
        gst_rtsp_client_attach(client, own);
        while (!closed.hasCome())
            g_main_context_iteration(own, TRUE);
        g_object_unref(client);
        g_main_context_unref(own);
    }
    const std::lock_guard lock(mutex);
    connections.erase(&connection);
}

void RtspServer::State::cut(int channel) {
    const std::lock_guard lock(mutex);
    for (RtspConnection* connection : connections)
        connection->cutIfPlaying(channel);
}

RtspServer::RtspServer(Device& device) {
    startGStreamer();
    state_ = std::make_unique<State>(device);
}

RtspServer::~RtspServer() = default;

void RtspServer::serve(Connection& connection, std::uint64_t number) {
    // The library would open tunnels here, too, half on this thread and half on another one.
    const std::string start =
        connection.peek(longestTunnelMethod.size(), in(std::chrono::seconds(idleSeconds)));
    if (start.empty() || start.starts_with("GET ") || start == longestTunnelMethod)
        return;
    RtspConnection rtsp(state_->device, state_->channels, connection, number, false);
    state_->serve(rtsp, libraryConnection(connection, nullptr), nullptr);
}

bool RtspServer::serveTunnel(Connection& connection, std::uint64_t number, const std::string& begun,
                             std::optional<int> channel) {
    RtspConnection rtsp(state_->device, state_->channels, connection, number, true);
    // Here, because the thread that all tunnels share has no time to wait for a picture.
    if (channel && !rtsp.join(*channel))
        return false;
    state_->serve(rtsp, libraryConnection(connection, begun.c_str()), state_->context);
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
