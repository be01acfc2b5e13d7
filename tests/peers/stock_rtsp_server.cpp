#include "tests/peers/stock_rtsp_server.h"

#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>
#include <sstream>
#include <thread>

namespace peers {

struct StockRtspServer::State {
    std::string track;
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GstRTSPServer* server = nullptr;
    std::thread thread;
};

namespace {

void nameTrack(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, void* track) {
    gst_rtsp_stream_set_control(gst_rtsp_media_get_stream(media, 0),
                                static_cast<std::string*>(track)->c_str());
}

void askForUser(GstRTSPServer* server, GstRTSPMediaFactory* factory, bool digest) {
    GstRTSPAuth* auth = gst_rtsp_auth_new();
    GstRTSPToken* token =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
    if (digest) {
        gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
        gst_rtsp_auth_add_digest(auth, "viewer", "s3cret", token);
    } else {
        char* basic = gst_rtsp_auth_make_basic("viewer", "s3cret");
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

GstRTSPFilterResult closeClient(GstRTSPServer* /*server*/, GstRTSPClient* /*client*/, void* /*unused*/) {
    return GST_RTSP_FILTER_REMOVE;
}

} // namespace

StockRtspServer::StockRtspServer(const StockRtspOptions& options) : state_(std::make_unique<State>()) {
    gst_init(nullptr, nullptr);
    state_->track = options.track;
    state_->server = gst_rtsp_server_new();
    gst_rtsp_server_set_address(state_->server, options.address.c_str());
    gst_rtsp_server_set_service(state_->server, options.port.c_str());
    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, options.pipeline.c_str());
    if (options.overTcp)
        gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
    if (options.basic || options.digest)
        askForUser(state_->server, factory, options.digest);
    if (!options.track.empty())
        g_signal_connect(factory, "media-configure", G_CALLBACK(nameTrack), &state_->track);
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(state_->server);
    std::istringstream paths(options.path);
    for (std::string path; std::getline(paths, path, ',');)
        gst_rtsp_mount_points_add_factory(mounts, path.c_str(),
                                          GST_RTSP_MEDIA_FACTORY(g_object_ref(factory)));
    g_object_unref(factory);
    g_object_unref(mounts);
    gst_rtsp_server_attach(state_->server, state_->context);
    state_->thread = std::thread([state = state_.get()] {
        g_main_context_push_thread_default(state->context);
        g_main_loop_run(state->loop);
        g_main_context_pop_thread_default(state->context);
    });
}

StockRtspServer::~StockRtspServer() {
    gst_rtsp_server_client_filter(state_->server, closeClient, nullptr);
    g_main_loop_quit(state_->loop);
    state_->thread.join();
    g_object_unref(state_->server);
    g_main_loop_unref(state_->loop);
    g_main_context_unref(state_->context);
}

unsigned short StockRtspServer::port() const {
    return static_cast<unsigned short>(gst_rtsp_server_get_bound_port(state_->server));
}

} // namespace peers
