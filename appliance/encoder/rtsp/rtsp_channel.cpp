#include "appliance/encoder/rtsp/rtsp_channel.h"

#include "appliance/encoder/rtsp/rtsp_feeder.h"

#include <arpa/inet.h>
#include <array>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Reports are frequent, because a new receiver needs one before it can use the stream's clock. They cost a few hundred
// bytes a second.
constexpr guint64 reportInterval = 200 * GST_MSECOND;
constexpr double reportBandwidth = 64000; // bits a second: enough, so that the library keeps to the interval
constexpr const char* feederKey = "encoder-feeder";
// Above the ports that a decoder on this machine uses for its players.
constexpr int firstServerPort = 42000;
constexpr int lastServerPort = 59999;

RtspFeeder* feederOf(GstRTSPMedia* media) {
    return static_cast<RtspFeeder*>(g_object_get_data(G_OBJECT(media), feederKey));
}

// The packetizer of MPEG-4 holds a picture back until the next picture or a segment event arrives. So it gets its
// own segment again, directly: a segment from the source would arrive together with the next picture.
GstPadProbeReturn onPictureEnd(GstPad* pad, GstPadProbeInfo* info, gpointer packetizer) {
    if (gst_event_has_name(GST_PAD_PROBE_INFO_EVENT(info), RtspFeeder::pictureEndName) == FALSE)
        return GST_PAD_PROBE_OK;
    if (GstEvent* segment = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0))
        GST_PAD_EVENTFUNC(pad)(pad, GST_OBJECT(packetizer), segment);
    return GST_PAD_PROBE_DROP;
}

GstBuffer* firstBuffer(GstPadProbeInfo* info) {
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0)
        return GST_PAD_PROBE_INFO_BUFFER(info);
    GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
    return gst_buffer_list_length(list) == 0 ? nullptr : gst_buffer_list_get(list, 0);
}

// The first bytes of a packet, at most 12.
std::string headOf(GstBuffer* buffer) {
    std::string head(12, '\0');
    head.resize(gst_buffer_extract(buffer, 0, head.data(), head.size()));
    return head;
}

GstPadProbeReturn onSend(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer feeder) {
    GstBuffer* buffer = firstBuffer(info);
    const bool wanted = buffer == nullptr ||
                        static_cast<const RtspFeeder*>(feeder)->wants(headOf(buffer), GST_BUFFER_PTS(buffer));
    return wanted ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

void onElement(GstBin* /*pipeline*/, GstBin* /*parent*/, GstElement* element, gpointer data) {
    auto* media = static_cast<GstRTSPMedia*>(data);
    const GstElementFactory* factory = gst_element_get_factory(element);
    const std::string_view name = factory == nullptr ? "" : GST_OBJECT_NAME(factory);
    if (name == "multiudpsink")
        g_object_set(element, "loop", TRUE, nullptr); // for players on this machine
    if (name == "appsink")
        g_object_set(element, "async", FALSE, nullptr); // so that reports do not wait for data
    if (name != "multiudpsink" && name != "appsink")
        return;
    GstPad* pad = gst_element_get_static_pad(element, "sink");
    gst_pad_add_probe(
        pad, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST), onSend,
        feederOf(media), nullptr);
    gst_object_unref(pad);
}

void onPrepared(GstRTSPMedia* media, gpointer /*unused*/) {
    GObject* session = gst_rtsp_stream_get_rtpsession(gst_rtsp_media_get_stream(media, 0));
    g_object_set(session, "rtcp-min-interval", reportInterval, "rtcp-fraction", reportBandwidth, nullptr);
    g_object_unref(session);
}

void onTargetState(GstRTSPMedia* media, GstState state, gpointer /*unused*/) {
    feederOf(media)->play(state == GST_STATE_PLAYING);
}

void onUnprepared(GstRTSPMedia* media, gpointer /*unused*/) {
    feederOf(media)->stop();
}

std::string launchLine(Codec codec) {
    const bool h264 = codec == Codec::H264;
    // Without a parser in between, because it would hold each picture back until the next one begins.
    return std::string("( appsrc name=source is-live=true format=time block=true max-buffers=1 max-bytes=0 "
                       "caps=\"") +
           (h264 ? "video/x-h264,stream-format=byte-stream,alignment=au\" ! rtph264pay"
                 : "video/mpeg,mpegversion=4,systemstream=false,parsed=true\" ! rtpmp4vpay "
                   "config-interval=-1") +
           " name=pay0 pt=96 )";
}

// The name of the interface with this address; "" if there is none.
std::string interfaceOf(const std::string& address) {
    ifaddrs* all = nullptr;
    std::string name;
    if (getifaddrs(&all) != 0)
        return name;
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        std::array<char, INET_ADDRSTRLEN> text{};
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET)
            continue;
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(one->ifa_addr)->sin_addr, text.data(),
                  text.size());
        if (address == text.data())
            name = one->ifa_name;
    }
    freeifaddrs(all);
    return name;
}

bool canBind(int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    const bool bound = fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
    if (fd >= 0)
        close(fd);
    return bound;
}

// An even port that is free on every address, and the port above it too.
int freePortPair() {
    constexpr int pairs = (lastServerPort + 1 - firstServerPort) / 2;
    const int start = g_random_int_range(0, pairs);
    for (int i = 0; i < pairs; ++i) {
        const int port = firstServerPort + (start + i) % pairs * 2;
        if (canBind(port) && canBind(port + 1))
            return port;
    }
    return firstServerPort;
}

// Sets the addresses and ports that the next pipeline sends from.
void setAddresses(GstRTSPMediaFactory* factory, const std::string& group, const std::string& address) {
    GstRTSPAddressPool* pool = gst_rtsp_address_pool_new();
    // Not the destination port, because a receiver on this machine may need it. And free ports, because the library
    // (1.22) frees a group's address twice when the ports are taken.
    const auto port = static_cast<guint16>(freePortPair());
    gst_rtsp_address_pool_add_range(pool, group.c_str(), group.c_str(), port, port + 1, 1);
    // Clients accept packets only from the address that they connected to.
    const char* own = address == "0.0.0.0" ? GST_RTSP_ADDRESS_POOL_ANY_IPV4 : address.c_str();
    gst_rtsp_address_pool_add_range(pool, own, own, firstServerPort, lastServerPort, 0);
    gst_rtsp_media_factory_set_address_pool(factory, pool);
    g_object_unref(pool);
}

void setInterface(GstRTSPMediaFactory* factory, const std::string& address) {
    gst_rtsp_media_factory_set_max_mcast_ttl(factory, 1);
    if (const std::string interface = interfaceOf(address); !interface.empty())
        gst_rtsp_media_factory_set_multicast_iface(factory, interface.c_str());
}

GstRTSPLowerTrans protocolsOf(const Options& options) {
    int protocols = GST_RTSP_LOWER_TRANS_UNKNOWN;
    if (options.offers(Kind::RtspUnicast))
        protocols |= GST_RTSP_LOWER_TRANS_UDP;
    if (options.offers(Kind::RtspMulticast))
        protocols |= GST_RTSP_LOWER_TRANS_UDP_MCAST;
    if (options.offers(Kind::RtspTcp) || options.offers(Kind::RtspHttp))
        protocols |= GST_RTSP_LOWER_TRANS_TCP;
    return static_cast<GstRTSPLowerTrans>(protocols);
}

// One key for all URLs of a channel. By default the library builds a pipeline for each spelling of the URL.
GstRTSPMediaFactory* makeFactory() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_RTSP_MEDIA_FACTORY, "EncoderMediaFactory", sizeof(GstRTSPMediaFactoryClass),
        [](gpointer factory, gpointer /*unused*/) {
            GST_RTSP_MEDIA_FACTORY_CLASS(factory)->gen_key = [](GstRTSPMediaFactory*, const GstRTSPUrl*) {
                return g_strdup("the one");
            };
        },
        sizeof(GstRTSPMediaFactory), nullptr, static_cast<GTypeFlags>(0));
    return static_cast<GstRTSPMediaFactory*>(g_object_new(type, nullptr));
}

} // namespace

RtspChannel::RtspChannel(const Options& options, std::string path, CodecStream& stream,
                         const FaultSwitch& faults, const MulticastPlace& place,
                         std::function<void()> cutClients, GstRTSPThreadPool* threads)
    : options_(options), path_(std::move(path)), stream_(stream), faults_(faults), place_(place),
      cutClients_(std::move(cutClients)), threads_(threads), factory_(makeFactory()) {
    gst_rtsp_media_factory_set_launch(factory_, launchLine(options.codec).c_str());
    gst_rtsp_media_factory_set_shared(factory_, TRUE);
    gst_rtsp_media_factory_set_stop_on_disconnect(factory_, TRUE);
    gst_rtsp_media_factory_set_latency(factory_, 0);
    gst_rtsp_media_factory_set_protocols(factory_, protocolsOf(options));
    setInterface(factory_, options.address);
    g_signal_connect(factory_, "media-configure", G_CALLBACK(onConfigure), this);
}

RtspChannel::~RtspChannel() {
    g_object_unref(factory_);
}

bool RtspChannel::join() {
    const std::lock_guard lock(mutex_);
    if (members_ > 0) {
        ++members_;
        return true;
    }
    setAddresses(factory_, place_.group, options_.address);
    GstRTSPUrl* url = nullptr;
    gst_rtsp_url_parse(("rtsp://localhost" + path_).c_str(), &url);
    media_ = gst_rtsp_media_factory_construct(factory_, url);
    gst_rtsp_url_free(url);
    if (media_ == nullptr)
        return false;
    GstRTSPThread* thread = gst_rtsp_thread_pool_get_thread(threads_, GST_RTSP_THREAD_TYPE_MEDIA, nullptr);
    if (gst_rtsp_media_prepare(media_, thread) == FALSE) {
        g_clear_object(&media_);
        return false;
    }
    ++members_;
    return true;
}

void RtspChannel::leave() {
    const std::lock_guard lock(mutex_);
    if (--members_ > 0)
        return;
    gst_rtsp_media_unprepare(media_);
    g_clear_object(&media_);
}

GstSDPMessage* RtspChannel::describe(GstRTSPMedia* media, const Options& options,
                                     const std::string& localAddress) {
    GstSDPInfo info{FALSE, localAddress.c_str()};
    GstSDPMessage* message = nullptr;
    gst_sdp_message_new(&message);
    gst_sdp_message_set_version(message, "0");
    gst_sdp_message_set_origin(message, "-", "1", "1", "IN", "IP4", localAddress.c_str());
    gst_sdp_message_set_session_name(message, options.name.empty() ? "-" : options.name.c_str());
    gst_sdp_message_add_time(message, "0", "0", nullptr);
    gst_sdp_message_add_attribute(message, "control", "*");
    if (gst_rtsp_media_setup_sdp(media, message, &info) != FALSE)
        return message;
    gst_sdp_message_free(message);
    return nullptr;
}

std::string RtspChannel::description(const std::string& localAddress) {
    const std::lock_guard lock(mutex_);
    GstSDPMessage* message = describe(media_, options_, localAddress);
    if (message == nullptr)
        return {};
    char* made = gst_sdp_message_as_text(message);
    std::string text = made;
    g_free(made);
    gst_sdp_message_free(message);
    return text;
}

void RtspChannel::onConfigure(GstRTSPMediaFactory* /*factory*/, GstRTSPMedia* media, gpointer channel) {
    auto& self = *static_cast<RtspChannel*>(channel);
    gst_rtsp_stream_set_control(gst_rtsp_media_get_stream(media, 0), self.options_.track.c_str());
    GstElement* bin = gst_rtsp_media_get_element(media);
    GstElement* source = gst_bin_get_by_name(GST_BIN(bin), "source");
    auto* feeder = new RtspFeeder(self.stream_, self.faults_, self.cutClients_, source);
    g_object_set_data_full(G_OBJECT(media), feederKey, feeder,
                           [](gpointer gone) { delete static_cast<RtspFeeder*>(gone); });
    GstElement* packetizer = gst_bin_get_by_name(GST_BIN(bin), "pay0");
    GstPad* pad = gst_element_get_static_pad(packetizer, "sink");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onPictureEnd, packetizer, nullptr);
    gst_object_unref(pad);
    gst_object_unref(packetizer);
    GstObject* pipeline = gst_element_get_parent(bin);
    g_signal_connect(pipeline, "deep-element-added", G_CALLBACK(onElement), media);
    g_signal_connect(media, "prepared", G_CALLBACK(onPrepared), nullptr);
    g_signal_connect(media, "target-state", G_CALLBACK(onTargetState), nullptr);
    g_signal_connect(media, "unprepared", G_CALLBACK(onUnprepared), nullptr);
    gst_object_unref(pipeline);
    gst_object_unref(source);
    gst_object_unref(bin);
}
