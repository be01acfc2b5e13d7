#include "appliance/streams/stream_description.h"

#include "appliance/streams/rtp_payload.h"

#include <libcommon/log.h>

#include <cstdlib>
#include <gst/sdp/gstsdpmessage.h>
#include <memory>
#include <string_view>

namespace streams {
namespace {

struct Free {
    void operator()(GstSDPMessage* message) const { gst_sdp_message_free(message); }
};

std::string textOr(const char* text, const char* otherwise) {
    return text == nullptr ? otherwise : text;
}

// The attribute ("rtpmap", "fmtp") that begins with this payload type.
std::string attributeOf(const GstSDPMedia* media, const char* name, const std::string& payloadType) {
    for (guint i = 0;; ++i) {
        const char* value = gst_sdp_media_get_attribute_val_n(media, name, i);
        if (value == nullptr)
            return "";
        if (std::string_view(value).starts_with(payloadType + " "))
            return value;
    }
}

std::optional<DescribedStream> streamOf(const GstSDPMedia* media, const std::string& base) {
    const char* format = gst_sdp_media_get_format(media, 0);
    if (format == nullptr || gst_sdp_media_get_port(media) > 65535)
        return std::nullopt;
    DescribedStream stream;
    if (GstCaps* caps = gst_sdp_media_get_caps_from_media(media, std::atoi(format))) {
        gst_structure_set_name(gst_caps_get_structure(caps, 0), "application/x-rtp");
        char* written = gst_caps_to_string(caps);
        stream.caps = written;
        g_free(written);
        gst_caps_unref(caps);
    }
    // Static payload types need no rtpmap attribute.
    if (encodingNameIn(stream.caps).empty())
        stream.caps = capsOfPayloadType(std::atoi(format));
    stream.encodingName = encodingNameIn(stream.caps);
    if (stream.encodingName.empty())
        return std::nullopt;
    stream.payloadType = std::atoi(format);
    stream.rtpmap = attributeOf(media, "rtpmap", format);
    stream.fmtp = attributeOf(media, "fmtp", format);
    stream.control = resolveControl(base, textOr(gst_sdp_media_get_attribute_val(media, "control"), "*"));
    return stream;
}

} // namespace

bool startDescriptions() {
    // An empty search path and a registry file that can't exist: gst_init() reads and writes nothing.
    setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
    setenv("GST_PLUGIN_PATH_1_0", "", 1);
    setenv("GST_REGISTRY_1_0", "/proc/self/no-registry/registry", 1);
    setenv("GST_REGISTRY_UPDATE", "no", 1);
    gst_registry_fork_set_enabled(FALSE);
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error) != FALSE)
        return true;
    logmsg(3, "GStreamer does not start: %s", error->message);
    g_error_free(error);
    return false;
}

std::string resolveControl(const std::string& base, const std::string& control) {
    if (control.empty() || control == "*")
        return base;
    if (control.find("://") != std::string::npos)
        return control;
    if (control.front() == '/') { // a path on the base's host
        const std::size_t host = base.find("://");
        const std::size_t path = host == std::string::npos ? std::string::npos : base.find('/', host + 3);
        return base.substr(0, path) + control;
    }
    return base + (base.ends_with('/') ? "" : "/") + control;
}

std::optional<StreamDescription> readDescription(const std::string& text, const std::string& base,
                                                 const Usable& video, const Usable& sound,
                                                 std::string& reason) {
    if (text.empty()) {
        reason = "the description is empty";
        return std::nullopt;
    }
    GstSDPMessage* parsed = nullptr;
    gst_sdp_message_new(&parsed);
    const std::unique_ptr<GstSDPMessage, Free> message(parsed);
    if (gst_sdp_message_parse_buffer(reinterpret_cast<const guint8*>(text.data()),
                                     static_cast<guint>(text.size()), parsed) != GST_SDP_OK) {
        reason = "the description can't be read";
        return std::nullopt;
    }
    StreamDescription content;
    content.control = resolveControl(base, textOr(gst_sdp_message_get_attribute_val(parsed, "control"), "*"));
    reason = "the description has no video";
    for (guint i = 0; i < gst_sdp_message_medias_len(parsed); ++i) {
        const GstSDPMedia* media = gst_sdp_message_get_media(parsed, i);
        const std::string kind = textOr(gst_sdp_media_get_media(media), "");
        const std::optional<DescribedStream> stream = streamOf(media, base);
        if (!stream)
            continue;
        if (kind == "video" && !content.video) {
            if (video(stream->encodingName))
                content.video = stream;
            else
                reason = "video in the encoding \"" + stream->encodingName + "\" can't be decoded";
        }
        if (kind == "audio" && !content.sound && sound(stream->encodingName))
            content.sound = stream;
    }
    return content.video ? std::optional(content) : std::nullopt;
}

} // namespace streams
