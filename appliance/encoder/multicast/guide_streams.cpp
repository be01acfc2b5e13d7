#include "appliance/encoder/multicast/guide_streams.h"

#include "appliance/encoder/base/gstreamer.h"
#include "appliance/encoder/codecs/gated_reader.h"

#include <algorithm>

namespace {

constexpr std::chrono::milliseconds watchTime(100);

// max-ptime makes the packers send each picture and each audio frame (24 ms) at once. They would otherwise wait for
// more until a packet is full.
constexpr const char* videoPackets =
    "appsrc name=source is-live=true format=time block=true max-buffers=2 max-bytes=0 "
    "caps=\"video/mpeg,mpegversion=2,systemstream=false\" ! rtpmpvpay pt=32 max-ptime=1";
constexpr const char* audioPackets =
    "audiotestsrc is-live=true wave=ticks ! audio/x-raw,rate=48000,channels=1 ! avenc_mp2 bitrate=64000 ! "
    "rtpmpapay pt=14 max-ptime=24000000";

} // namespace

GuideVideo::GuideVideo(CodecStream& stream, const FaultSwitch& faults, const std::string& localAddress,
                       const MulticastPlace& place)
    : stream_(stream), faults_(faults), pipeline_(RtpPipeline::start(videoPackets, localAddress, place)) {
    if (!pipeline_)
        return;
    source_ = GST_APP_SRC(pipeline_->element("source"));
    thread_ = std::thread(&GuideVideo::run, this);
}

GuideVideo::~GuideVideo() {
    if (!pipeline_)
        return;
    stopping_ = true;
    thread_.join();
    gst_object_unref(source_);
}

void GuideVideo::run() {
    GatedReader reader(stream_, faults_);
    while (!stopping_) {
        const auto turn = reader.next(watchTime);
        if (!turn)
            continue;
        switch (turn->step) {
        case FrameGate::Step::Cut: // there is no connection to cut: the packets stop
        case FrameGate::Step::Hold:
            break;
        case FrameGate::Step::Repeat:
        case FrameGate::Step::Send:
            push(*turn->unit, turn->time);
            break;
        }
    }
}

void GuideVideo::push(const AccessUnit& unit, std::int64_t time) const {
    GstBuffer* buffer = gst_buffer_new_memdup(unit.bytes.data(), unit.bytes.size());
    const GstClockTime now = gst_element_get_current_running_time(GST_ELEMENT(source_));
    const auto age = static_cast<GstClockTime>(
        std::max<std::int64_t>(0, std::chrono::steady_clock::now().time_since_epoch().count() - time));
    GST_BUFFER_PTS(buffer) = now == GST_CLOCK_TIME_NONE || now <= age ? 0 : now - age;
    GST_BUFFER_DURATION(buffer) = GST_SECOND / static_cast<GstClockTime>(stream_.fps()); // max-ptime needs it
    gst_app_src_push_buffer(source_, buffer);
}

std::unique_ptr<RtpPipeline> startGuideAudio(const std::string& localAddress, const MulticastPlace& place) {
    return RtpPipeline::start(audioPackets, localAddress, place);
}

std::string guideMistake(bool audio) {
    std::string mistake = missingElement({"appsrc", "rtpmpvpay", "rtpbin", "udpsink"});
    if (mistake.empty() && audio)
        mistake = missingElement({"audiotestsrc", "avenc_mp2", "rtpmpapay"});
    return mistake;
}
