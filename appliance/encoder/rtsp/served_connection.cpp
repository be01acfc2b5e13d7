#include "appliance/encoder/rtsp/served_connection.h"

#include "appliance/encoder/base/log.h"
#include "appliance/encoder/network/answering_faults.h"
#include "appliance/encoder/rtsp/rtsp_channel.h"
#include "appliance/serving/media_path.h"
#include "appliance/serving/text.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

constexpr const char* connectionKey = "encoder-connection";
constexpr const char* realm = "video encoder";
constexpr std::chrono::seconds writeTime(10);

std::string headerOf(GstRTSPMessage* message, GstRTSPHeaderField field, int index = 0) {
    char* text = nullptr;
    return gst_rtsp_message_get_header(message, field, &text, index) == GST_RTSP_OK ? text : "";
}

void setHeader(GstRTSPMessage* message, GstRTSPHeaderField field, const std::string& text) {
    gst_rtsp_message_remove_header(message, field, -1);
    gst_rtsp_message_add_header(message, field, text.c_str());
}

std::string targetOf(GstRTSPMessage* request) {
    GstRTSPMethod method = GST_RTSP_INVALID;
    const char* target = nullptr;
    gst_rtsp_message_parse_request(request, &method, &target, nullptr);
    return target == nullptr ? "" : target;
}

std::string textOf(GstRTSPMessage* answer) {
    GstRTSPStatusCode status{};
    const char* reason = nullptr;
    gst_rtsp_message_parse_response(answer, &status, &reason, nullptr);
    GString* text = g_string_new(nullptr);
    g_string_printf(text, "RTSP/1.0 %d %s\r\n", status, reason);
    gst_rtsp_message_append_headers(answer, text);
    g_string_append(text, "\r\n");
    std::uint8_t* body = nullptr;
    guint size = 0;
    if (gst_rtsp_message_get_body(answer, &body, &size) == GST_RTSP_OK && body != nullptr)
        g_string_append_len(text, reinterpret_cast<const char*>(body), size);
    std::string bytes(text->str, text->len);
    g_string_free(text, TRUE);
    return bytes;
}

bool isForPlaying(GstRTSPMethod method) {
    return method == GST_RTSP_PLAY || method == GST_RTSP_PAUSE || method == GST_RTSP_TEARDOWN;
}

void refuse(GstRTSPContext* context, GstRTSPStatusCode status, GstRTSPAuth* checker) {
    gst_rtsp_message_init_response(context->response, status, gst_rtsp_status_as_text(status),
                                   context->request);
    if (status == GST_RTSP_STS_UNAUTHORIZED)
        GST_RTSP_AUTH_GET_CLASS(checker)->generate_authenticate_header(checker, context);
    gst_rtsp_client_send_message(context->client, nullptr, context->response);
}

// A protocol violation for a fault: interleaved packets on a channel that was never set up.
void sendEarlyData(Connection& connection) {
    const std::string packet = std::string("$\0\0\xCA\x80\x60", 6) + std::string(200, '\0');
    for (int i = 0; i < 3; ++i)
        connection.write({packet}, in(writeTime));
}

} // namespace

GstRTSPAuth* ServedConnection::makeChecker(const Options& options) {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_RTSP_AUTH, "EncoderRtspChecker", sizeof(GstRTSPAuthClass),
        [](gpointer checker, gpointer /*unused*/) { GST_RTSP_AUTH_CLASS(checker)->check = onCheck; },
        sizeof(GstRTSPAuth), nullptr, static_cast<GTypeFlags>(0));
    auto* checker = static_cast<GstRTSPAuth*>(g_object_new(type, nullptr));
    gst_rtsp_auth_set_realm(checker, realm);
    if (options.user.empty())
        return checker;
    GstRTSPToken* token =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, "viewer", nullptr);
    char* basic = gst_rtsp_auth_make_basic(options.user.c_str(), options.password.c_str());
    gst_rtsp_auth_add_basic(checker, basic, token);
    g_free(basic);
    gst_rtsp_token_unref(token);
    return checker;
}

ServedConnection::~ServedConnection() {
    for (const int channel : joined_)
        channels_[static_cast<std::size_t>(channel)]->leave();
}

bool ServedConnection::join(int channel) {
    if (joined_.contains(channel))
        return true;
    if (!channels_[static_cast<std::size_t>(channel)]->join())
        return false;
    joined_.insert(channel);
    return true;
}

GstRTSPClient* ServedConnection::makeClient() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_RTSP_CLIENT, "EncoderRtspClient", sizeof(GstRTSPClientClass),
        [](gpointer client, gpointer /*unused*/) {
            GST_RTSP_CLIENT_CLASS(client)->configure_client_transport = onTransport;
            GST_RTSP_CLIENT_CLASS(client)->make_path_from_uri = pathOf;
            GST_RTSP_CLIENT_CLASS(client)->create_sdp = describe;
        },
        sizeof(GstRTSPClient), nullptr, static_cast<GTypeFlags>(0));
    auto* client = static_cast<GstRTSPClient*>(g_object_new(type, nullptr));
    g_object_set_data(G_OBJECT(client), connectionKey, this);
    g_signal_connect(client, "send-message", G_CALLBACK(onAnswer), this);
    g_signal_connect(client, "play-request", G_CALLBACK(onPlay), this);
    return client;
}

ServedConnection& ServedConnection::of(GstRTSPClient* client) {
    return *static_cast<ServedConnection*>(g_object_get_data(G_OBJECT(client), connectionKey));
}

// The library answers PLAY and TEARDOWN on a track's URL with 460, "only aggregate operation allowed". Many clients
// send them there, and with a single track both URLs mean the same: the library gets the path without the track's name.
gchar* ServedConnection::pathOf(GstRTSPClient* client, const GstRTSPUrl* url) {
    const GstRTSPContext* context = gst_rtsp_context_get_current();
    const auto channel = mediaChannelOf(url->abspath);
    const std::string& track = of(client).device_.options.track;
    if (context != nullptr && isForPlaying(context->method) && channel &&
        url->abspath == mediaPathOf(*channel) + "/" + track)
        return g_strdup(mediaPathOf(*channel).c_str());
    auto* base = GST_RTSP_CLIENT_CLASS(g_type_class_peek(GST_TYPE_RTSP_CLIENT));
    return base->make_path_from_uri(client, url);
}

// The library would name the socket's own address, and a relay's socket has none.
GstSDPMessage* ServedConnection::describe(GstRTSPClient* client, GstRTSPMedia* media) {
    const ServedConnection& self = of(client);
    return RtspChannel::describe(media, self.device_.options, self.connection_.localAddress());
}

// By default the library uses its sending port as the group's port. Clients expect the configured port.
gboolean ServedConnection::onTransport(GstRTSPClient* client, GstRTSPContext* context,
                                       GstRTSPTransport* transport) {
    auto* base = GST_RTSP_CLIENT_CLASS(g_type_class_peek(GST_TYPE_RTSP_CLIENT));
    if (base->configure_client_transport(client, context, transport) == FALSE)
        return FALSE;
    const auto channel = mediaChannelOf(context->uri->abspath);
    if (transport->lower_transport != GST_RTSP_LOWER_TRANS_UDP_MCAST || !channel)
        return TRUE;
    const MulticastPlace& place = of(client).channels_[static_cast<std::size_t>(*channel)]->place();
    transport->port = {place.port, place.port + 1};
    return gst_rtsp_stream_add_multicast_client_address(context->stream, transport->destination, place.port,
                                                        place.port + 1U, G_SOCKET_FAMILY_IPV4);
}

void ServedConnection::cutIfPlaying(int channel) {
    if (channel_ == channel)
        connection_.cut();
}

// The library calls this for every request, and again for details of some.
gboolean ServedConnection::onCheck(GstRTSPAuth* checker, GstRTSPContext* context, const gchar* what) {
    const std::string_view subject = what;
    if (subject == GST_RTSP_AUTH_CHECK_TRANSPORT_CLIENT_SETTINGS)
        return FALSE; // clients cannot choose the multicast group
    if (subject != GST_RTSP_AUTH_CHECK_URL)
        return TRUE;
    return of(context->client).admits(checker, context) ? TRUE : FALSE;
}

// False when the request has been answered already, or will get no answer.
bool ServedConnection::admits(GstRTSPAuth* checker, GstRTSPContext* context) {
    const FaultSet faults = device_.faults.current();
    requestTime_ = millisecondsSince1970();
    if (faults.has(Fault::Delay))
        connection_.sleepUntil(in(std::chrono::milliseconds(faults.number(Fault::Delay))));
    if (const auto fault = answeringFault(faults)) {
        record(context->request, 0);
        answerWithFault(*fault, device_, connection_, "RTSP/1.0");
        connection_.shutdown();
        return false;
    }
    const GstRTSPStatusCode status = statusOf(checker, context, faults);
    if (status != GST_RTSP_STS_OK)
        refuse(context, status, checker);
    return status == GST_RTSP_STS_OK;
}

GstRTSPStatusCode ServedConnection::statusOf(GstRTSPAuth* checker, GstRTSPContext* context,
                                             const FaultSet& faults) {
    if (faults.has(Fault::NotFound))
        return GST_RTSP_STS_NOT_FOUND;
    if (faults.has(Fault::Unauthorised) || !isKnown(checker, context))
        return GST_RTSP_STS_UNAUTHORIZED;
    if (context->method != GST_RTSP_DESCRIBE && context->method != GST_RTSP_SETUP)
        return GST_RTSP_STS_OK;
    const auto channel = context->uri == nullptr ? std::nullopt : mediaChannelOf(context->uri->abspath);
    if (!channel || device_.channel(*channel) == nullptr)
        return GST_RTSP_STS_NOT_FOUND;
    if (context->method == GST_RTSP_SETUP && !chooseTransport(context->request))
        return GST_RTSP_STS_UNSUPPORTED_TRANSPORT;
    return join(*channel) ? GST_RTSP_STS_OK : GST_RTSP_STS_SERVICE_UNAVAILABLE;
}

bool ServedConnection::isKnown(GstRTSPAuth* checker, GstRTSPContext* context) const {
    if (device_.options.user.empty() || context->method == GST_RTSP_OPTIONS)
        return true;
    return GST_RTSP_AUTH_GET_CLASS(checker)->authenticate(checker, context) != FALSE &&
           context->token != nullptr;
}

bool ServedConnection::allows(const GstRTSPTransport& transport) const {
    const Options& options = device_.options;
    if (transport.trans != GST_RTSP_TRANS_RTP)
        return false;
    if (transport.lower_transport == GST_RTSP_LOWER_TRANS_TCP)
        return tunnelled_ || options.offers(Kind::RtspTcp);
    if (tunnelled_)
        return false;
    if (transport.lower_transport == GST_RTSP_LOWER_TRANS_UDP_MCAST)
        return options.offers(Kind::RtspMulticast);
    return options.offers(Kind::RtspUnicast) && transport.client_port.min > 0;
}

// Keeps only the first transport that this connection may use; false if there is none.
bool ServedConnection::chooseTransport(GstRTSPMessage* request) const {
    for (int i = 0;; ++i) {
        const std::string wish = headerOf(request, GST_RTSP_HDR_TRANSPORT, i);
        if (wish.empty())
            return false;
        GstRTSPTransport transport{};
        gst_rtsp_transport_init(&transport);
        const bool good =
            gst_rtsp_transport_parse(wish.c_str(), &transport) == GST_RTSP_OK && allows(transport);
        gst_rtsp_transport_init(&transport); // frees its texts
        if (good) {
            setHeader(request, GST_RTSP_HDR_TRANSPORT, wish);
            return true;
        }
    }
}

void ServedConnection::onAnswer(GstRTSPClient* /*client*/, GstRTSPContext* context, GstRTSPMessage* answer,
                                gpointer connection) {
    auto* self = static_cast<ServedConnection*>(connection);
    if (answer->type != GST_RTSP_MESSAGE_RESPONSE || context->request == nullptr)
        return;
    self->record(context->request, answer->type_data.response.code);
    const FaultSet faults = self->device_.faults.current();
    setHeader(answer, GST_RTSP_HDR_SERVER, "video-encoder");
    // The library always answers with an absolute Content-Base. Clients that sent a bare path get a bare path back.
    const std::string target = targetOf(context->request);
    if (target.starts_with('/') && !headerOf(answer, GST_RTSP_HDR_CONTENT_BASE).empty())
        setHeader(answer, GST_RTSP_HDR_CONTENT_BASE, target + "/");
    // RTP-Info is wrong here: its sequence number and time come from the picture that was made for the description,
    // or from packets that this client does not get.
    gst_rtsp_message_remove_header(answer, GST_RTSP_HDR_RTP_INFO, -1);
    self->misbehave(answer, faults);
}

void ServedConnection::misbehave(GstRTSPMessage* answer, const FaultSet& faults) {
    if (faults.has(Fault::WrongCSeq)) {
        const int number = wholeNumber(headerOf(answer, GST_RTSP_HDR_CSEQ)).value_or(0);
        setHeader(answer, GST_RTSP_HDR_CSEQ, std::to_string(number + 1000));
    }
    if (faults.has(Fault::NoSession))
        gst_rtsp_message_remove_header(answer, GST_RTSP_HDR_SESSION, -1);
    if (faults.has(Fault::EarlyData))
        sendEarlyData(connection_);
    ++answers_;
    const bool truncate = faults.has(Fault::Truncated);
    if (!truncate && !(faults.has(Fault::CloseAfter) && answers_ >= faults.number(Fault::CloseAfter)))
        return;
    // Written without the library, which then finds the connection closed.
    std::string text = textOf(answer);
    if (truncate)
        text.resize(std::min(text.size(), static_cast<std::size_t>(faults.number(Fault::Truncated))));
    connection_.write({text}, in(writeTime));
    connection_.shutdown();
}

void ServedConnection::onPlay(GstRTSPClient* /*client*/, GstRTSPContext* context, gpointer connection) {
    auto* self = static_cast<ServedConnection*>(connection);
    const auto channel = mediaChannelOf(context->uri->abspath);
    if (!channel)
        return;
    self->channel_ = *channel;
    self->channels_[static_cast<std::size_t>(*channel)]->welcomeNewcomer();
}

void ServedConnection::record(GstRTSPMessage* request, int status) {
    const std::string target = targetOf(request);
    const char* method = gst_rtsp_method_as_text(request->type_data.request.method);
    const std::string name = method == nullptr ? "?" : method;
    if (device_.options.verbosity > 0)
        logLine(connection_.peerAddress() + " " + name + " " + target + " " + std::to_string(status));
    // The library refuses some requests without asking the checker first; they have no time yet.
    const std::int64_t time = requestTime_ == 0 ? millisecondsSince1970() : std::exchange(requestTime_, 0);
    device_.requests.add({"rtsp", name, target,
                          Authenticator::claimedUser(headerOf(request, GST_RTSP_HDR_AUTHORIZATION)), status,
                          time, number_});
}
