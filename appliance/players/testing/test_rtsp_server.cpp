#include "appliance/players/testing/test_rtsp_server.h"

#include "appliance/players/testing/test_marking.h"

#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace player {

namespace {

// What clients requested, and the media that serve them. The server's callbacks may outlive TestRtspServer, so
// each of them shares the ownership.
struct Notes {
    std::mutex lock; // guards the rest
    std::string transports;
    std::vector<GstElement*> media;

    Notes() = default;
    ~Notes() {
        for (GstElement* element : media)
            gst_object_unref(element);
    }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;
};
using SharedNotes = std::shared_ptr<Notes>;

// Connects a signal to a callback that owns its data, an object made with new.
template<typename Data>
void connect(void* object, const char* signal, GCallback callback, Data* data) {
    g_signal_connect_data(
        object, signal, callback, data,
        [](void* owned, GClosure* /*closure*/) { delete static_cast<Data*>(owned); }, GConnectFlags(0));
}

} // namespace

struct TestRtspServer::State {
    RtspServerOptions options;
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GstRTSPServer* server = gst_rtsp_server_new();
    SharedNotes notes = std::make_shared<Notes>();
    std::thread thread;
};

namespace {

struct MediaCare {
    Marking marking;
    SharedNotes notes;
    bool seeks;
};

GstPadProbeReturn dropSeek(GstPad* /*pad*/, GstPadProbeInfo* info, void* /*nothing*/) {
    return GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_SEEK ? GST_PAD_PROBE_DROP
                                                                            : GST_PAD_PROBE_OK;
}

void refuseSeeks(GstElement* media) {
    GstElement* payloader = gst_bin_get_by_name(GST_BIN(media), "pay0");
    GstPad* pad = gst_element_get_static_pad(payloader, "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, &dropSeek, nullptr, nullptr);
    gst_object_unref(pad);
    gst_object_unref(payloader);
}

void configureMedia(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, void* data) {
    auto& care = *static_cast<MediaCare*>(data);
    GstElement* element = gst_rtsp_media_get_element(media);
    care.marking.apply(element);
    if (!care.seeks)
        refuseSeeks(element);
    const std::lock_guard guard(care.notes->lock);
    care.notes->media.push_back(element);
}

// The certificate with which the server's connections begin.
void setCertificate(GstRTSPAuth* auth, const std::string& pem) {
    GError* error = nullptr;
    GTlsCertificate* certificate =
        g_tls_certificate_new_from_pem(pem.data(), static_cast<gssize>(pem.size()), &error);
    if (certificate == nullptr)
        throw std::runtime_error(std::string("no certificate: ") + error->message);
    gst_rtsp_auth_set_tls_certificate(auth, certificate);
    g_object_unref(certificate);
}

void addUser(GstRTSPServer* server, GstRTSPMediaFactory* factory, bool digest, const std::string& tls) {
    GstRTSPAuth* auth = gst_rtsp_auth_new();
    if (!tls.empty())
        setCertificate(auth, tls);
    gst_rtsp_auth_set_supported_methods(auth, digest ? GST_RTSP_AUTH_DIGEST : GST_RTSP_AUTH_BASIC);
    GstRTSPToken* token =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
    if (digest) {
        gst_rtsp_auth_add_digest(auth, "viewer", "secret", token);
    } else {
        char* basic = gst_rtsp_auth_make_basic("viewer", "secret");
        gst_rtsp_auth_add_basic(auth, basic, token);
        g_free(basic);
    }
    gst_rtsp_token_unref(token);
    gst_rtsp_server_set_auth(server, auth);
    g_object_unref(auth);
    gst_rtsp_media_factory_add_role(factory, "viewer", GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN,
                                    TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE,
                                    nullptr);
}

void noteTransport(GstRTSPClient* /*client*/, GstRTSPContext* context, void* data) {
    Notes& notes = **static_cast<SharedNotes*>(data);
    char* asked = nullptr;
    if (gst_rtsp_message_get_header(context->request, GST_RTSP_HDR_TRANSPORT, &asked, 0) != GST_RTSP_OK)
        return;
    const std::string text = asked;
    const std::lock_guard guard(notes.lock);
    notes.transports += text.find("TCP") != std::string::npos         ? "tcp "
                        : text.find("multicast") != std::string::npos ? "udp-mcast "
                                                                      : "udp ";
}

void noteClient(GstRTSPServer* /*server*/, GstRTSPClient* client, void* data) {
    connect(client, "setup-request", G_CALLBACK(noteTransport),
            new SharedNotes(*static_cast<SharedNotes*>(data)));
}

} // namespace

TestRtspServer::TestRtspServer(const RtspServerOptions& options) : state_(std::make_unique<State>()) {
    gst_init(nullptr, nullptr);
    state_->options = options;
    gst_rtsp_server_set_address(state_->server, "127.0.0.1");
    gst_rtsp_server_set_service(state_->server, "0");
    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    const std::string launch =
        "( videotestsrc is-live=true pattern=ball ! "
        "video/x-raw,format=BGRx,width=" +
        std::to_string(options.width) + ",height=" + std::to_string(options.height) +
        ",framerate=25/1 ! identity name=mark ! videoconvert ! video/x-raw,format=I420 ! " +
        options.encoding + (options.sound.empty() ? "" : " audiotestsrc is-live=true ! " + options.sound) +
        " )";
    gst_rtsp_media_factory_set_launch(factory, launch.c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    if (options.multicast) {
        GstRTSPAddressPool* pool = gst_rtsp_address_pool_new();
        gst_rtsp_address_pool_add_range(pool, "239.7.7.7", "239.7.7.9", 5000, 5010, 1);
        gst_rtsp_media_factory_set_address_pool(factory, pool);
        g_object_unref(pool);
        gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_UDP_MCAST);
    }
    connect(factory, "media-configure", G_CALLBACK(configureMedia),
            new MediaCare{{options.source, options.width, options.height}, state_->notes, options.seeks});
    connect(state_->server, "client-connected", G_CALLBACK(noteClient), new SharedNotes(state_->notes));
    if (options.basic || options.digest)
        addUser(state_->server, factory, options.digest, options.tls);
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(state_->server);
    gst_rtsp_mount_points_add_factory(mounts, options.path.c_str(), factory);
    g_object_unref(mounts);
    gst_rtsp_server_attach(state_->server, state_->context);
    state_->thread = std::thread([loop = state_->loop, context = state_->context] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(loop);
    });
}

TestRtspServer::~TestRtspServer() {
    gst_rtsp_server_client_filter(
        state_->server, [](GstRTSPServer*, GstRTSPClient*, void*) { return GST_RTSP_FILTER_REMOVE; },
        nullptr);
    g_main_loop_quit(state_->loop);
    state_->thread.join();
    g_object_unref(state_->server);
    g_main_loop_unref(state_->loop);
    g_main_context_unref(state_->context);
}

unsigned short TestRtspServer::port() const {
    return static_cast<unsigned short>(gst_rtsp_server_get_bound_port(state_->server));
}

void TestRtspServer::endStreams() {
    const std::lock_guard guard(state_->notes->lock);
    for (GstElement* element : state_->notes->media)
        gst_element_send_event(element, gst_event_new_eos());
}

int TestRtspServer::sessions() const {
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(state_->server);
    const int count = static_cast<int>(gst_rtsp_session_pool_get_n_sessions(pool));
    g_object_unref(pool);
    return count;
}

std::string TestRtspServer::transports() const {
    const std::lock_guard guard(state_->notes->lock);
    return state_->notes->transports;
}

} // namespace player
