// Makes RTP packets of one encoded stream, with libavformat's packetizers. For one thread.
#pragma once

#include "appliance/input/av_objects.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace input {

class RtpWriter {
public:
    using Send = std::function<void(std::string_view packet)>;

    // Null when RTP can't carry the stream. `send` may throw; write() throws it on.
    static std::unique_ptr<RtpWriter> make(const AVCodecParameters& parameters, int payloadType, Send send);
    ~RtpWriter();
    RtpWriter(const RtpWriter&) = delete;
    RtpWriter& operator=(const RtpWriter&) = delete;

    // Sends a whole picture or block of sound, in the order of decoding. `unit` gives the packet's times.
    void write(AVPacket& packet, AVRational unit);

    // The description of these streams, in their order.
    static std::string describe(const std::vector<const RtpWriter*>& writers);

private:
    RtpWriter(Send send, AVFormatContext* context);
    static int onBytes(void* self, std::uint8_t* bytes, int count);
    bool open(const AVCodecParameters& parameters, int payloadType);

    Send send_;
    AVFormatContext* context_;
    std::exception_ptr thrown_; // by send_, in a function that libavformat calls
};

} // namespace input
