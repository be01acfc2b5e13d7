// The encoder without its ports: options, inputs, codecs, multicasts, faults and the record of requests. All
// connections share one Device; each of them has its own thread.
#pragma once

#include "appliance/encoder/codecs/codec_stream.h"
#include "appliance/encoder/codecs/jpeg.h"
#include "appliance/encoder/device/authenticator.h"
#include "appliance/encoder/device/encoder_options.h"
#include "appliance/encoder/device/request_log.h"
#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/multicast/guide_streams.h"
#include "appliance/encoder/pictures/picture_source.h"
#include "appliance/serving/parameter_table.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One input, or the quad view: its pictures and the streams that are made from them. Streams that are not offered are
// null. Each member reads those above it, so the order matters.
struct Channel {
    int width;
    int height;
    std::unique_ptr<PictureSource> source;
    JpegMaker jpegs;
    std::unique_ptr<CodecStream> rtsp;
    std::unique_ptr<CodecStream> mpeg2;
    MulticastPlace rtspPlace;                 // of RTSP's multicast
    std::optional<MulticastPlace> guidePlace; // of the SDP guide's video; the quad view has none
    std::unique_ptr<GuideVideo> guideVideo;
    std::optional<MulticastPlace> guideAudioPlace;
    std::unique_ptr<RtpPipeline> guideAudio;
};

class Device {
public:
    explicit Device(Options deviceOptions);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Why the options cannot be served (an input does not exist, a codec is missing), or "".
    static std::string mistakeIn(const Options& options);

    // 1 to N are the inputs, 0 is the quad view; other numbers give null.
    Channel* channel(int number);

    // Ends every wait for a picture. Sessions check stopping() and end.
    void stop();
    bool stopping() const { return stopping_; }

    // Writes one line to standard output and flushes it. Any thread.
    void announce(std::string_view line);

    const Options options;
    FaultSwitch faults;
    RequestLog requests;
    const Authenticator authenticator;
    const Parameters parameters;

private:
    std::unique_ptr<Channel> makeInput(std::size_t index) const;
    void addCodecs(Channel& channel) const;
    void addMulticasts(Channel& channel, std::size_t number) const;
    MulticastPlace placeOf(std::size_t number, int portOffset) const;

    // [0] is the quad view; it reads the inputs, so it is built last and destroyed first.
    std::vector<std::unique_ptr<Channel>> channels_;
    std::atomic<bool> stopping_ = false;
    std::mutex announceLock_;
};
