// What the encoder is, apart from its sockets: options, inputs, faults and records. Its sessions, one thread
// a connection, share one Device.
#pragma once

#include "appliance/encoder/auth.h"
#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/faults.h"
#include "appliance/encoder/jpeg.h"
#include "appliance/encoder/mpeg_audio.h"
#include "appliance/encoder/mpeg_video.h"
#include "appliance/encoder/options.h"
#include "appliance/encoder/parameters.h"
#include "appliance/encoder/picture_source.h"
#include "appliance/encoder/request_log.h"
#include "appliance/encoder/rtsp_server.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One camera, or the quad view: its pictures and what is made of them. What is not offered is null. Each
// member reads those above it.
struct Channel {
    int width;
    int height;
    std::unique_ptr<PictureSource> source;
    JpegMaker jpegs;
    std::unique_ptr<CodecStream> rtsp;
    std::unique_ptr<CodecStream> mpeg2;
    MulticastPlace rtspPlace;            // of RTSP's multicast
    std::optional<MulticastPlace> guide; // of the SDP guide's video; not for the quad view
    std::unique_ptr<MpegVideoSender> videoSender;
    std::optional<MulticastPlace> guideAudio;
    std::unique_ptr<MpegAudioSender> audioSender;
};

class Device {
public:
    explicit Device(Options deviceOptions);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Why the options cannot be served (an input that is not there), or "".
    static std::string mistakeIn(const Options& options);

    // 1 to N are the inputs, 0 is the quad view; null for every other number.
    Channel* channel(int number);

    // Null when RTSP is not offered.
    RtspServer* rtsp() const { return rtsp_.get(); }

    // Ends all that sessions wait for in here; they are to end, too.
    void stop();
    bool stopping() const { return stopping_; }

    // One line on standard output, at once.
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

    std::vector<std::unique_ptr<Channel>>
        channels_; // [0] is the quad view: first to be made last and to go first
    std::atomic<bool> stopping_ = false;
    std::mutex announceLock_;
    std::unique_ptr<RtspServer> rtsp_; // reads the channels
};
