#include "appliance/encoder/device/device_facts.h"

namespace {

std::string imageFormats(const Options& options) {
    std::string formats = "jpeg";
    if (options.offers(Kind::Mjpeg))
        formats += ",mjpeg";
    if (options.offers(Kind::Mpeg2) || options.offers(Kind::Sdp))
        formats += ",mpeg2";
    if (options.offersRtsp())
        formats += ",mpeg4"; // for every codec: decoders take this word to mean RTSP
    return formats;
}

} // namespace

DeviceFacts factsOf(const Options& options) {
    return {options.model, options.apiVersion, options.rotation, options.inputs.size(),
            imageFormats(options)};
}
