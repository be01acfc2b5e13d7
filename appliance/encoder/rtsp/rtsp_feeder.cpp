#include "appliance/encoder/rtsp/rtsp_feeder.h"

#include <algorithm>

namespace {

constexpr std::chrono::seconds firstPictureTime(3);
constexpr std::chrono::milliseconds watchTime(50);

} // namespace

RtspFeeder::RtspFeeder(CodecStream& stream, const FaultSwitch& faults,
                       const std::function<void()>& cutClients, GstElement* source)
    : stream_(stream), faults_(faults), cutClients_(cutClients), source_(GST_APP_SRC(gst_object_ref(source))),
      thread_(&RtspFeeder::run, this) {}

RtspFeeder::~RtspFeeder() {
    stop();
    gst_object_unref(source_);
}

void RtspFeeder::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    const std::lock_guard lock(joining_);
    if (thread_.joinable())
        thread_.join();
}

void RtspFeeder::play(bool playing) {
    const std::lock_guard lock(mutex_);
    playing_ = playing;
    changed_.notify_all();
}

bool RtspFeeder::wants(std::string_view packet, GstClockTime time) const {
    // The second byte is 200 to 207 in RTCP; in RTP it is the payload type and the marker bit.
    const int second = packet.size() < 2 ? 0 : static_cast<std::uint8_t>(packet[1]);
    const FaultSet faults = faults_.current();
    if (second >= 200 && second <= 207)
        return !faults.has(Fault::NoRtcp) && !holding_;
    return !faults.has(Fault::NoRtp) && time >= liveFrom_;
}

void RtspFeeder::run() {
    if (!pushFirst())
        return;
    while (awaitPlay())
        sendWhilePlaying();
}

bool RtspFeeder::pushFirst() {
    CodecReader reader(stream_);
    const AccessUnitPtr unit = reader.next(firstPictureTime);
    if (unit)
        push(*unit, std::nullopt);
    else if (!stopped())
        GST_ELEMENT_ERROR(source_, RESOURCE, READ, ("there is no picture"), (nullptr));
    return unit != nullptr;
}

bool RtspFeeder::stopped() {
    const std::lock_guard lock(mutex_);
    return stopping_;
}

bool RtspFeeder::awaitPlay() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopping_ || playing_; });
    return !stopping_;
}

bool RtspFeeder::goesOn() {
    const std::lock_guard lock(mutex_);
    return playing_ && !stopping_;
}

void RtspFeeder::sendWhilePlaying() {
    GatedReader reader(stream_, faults_);
    liveFrom_ = GST_CLOCK_TIME_NONE;
    while (goesOn()) {
        const auto turn = reader.next(watchTime);
        if (!turn)
            continue;
        holding_ = turn->step == FrameGate::Step::Hold;
        switch (turn->step) {
        case FrameGate::Step::Cut:
            cutClients_();
            reader.restart(); // for the clients that come next
            break;
        case FrameGate::Step::Hold:
            break;
        case FrameGate::Step::Repeat:
        case FrameGate::Step::Send:
            push(*turn->unit, turn->time);
            break;
        }
    }
}

// The picture that is only used for the description has no time.
void RtspFeeder::push(const AccessUnit& unit, std::optional<std::int64_t> time) {
    GstBuffer* buffer = gst_buffer_new_memdup(unit.bytes.data(), unit.bytes.size());
    GST_BUFFER_PTS(buffer) = time ? runningTimeAt(*time) : 0;
    if (!unit.key)
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    if (time && liveFrom_ == GST_CLOCK_TIME_NONE)
        liveFrom_ = GST_BUFFER_PTS(buffer);
    gst_app_src_push_buffer(source_, buffer);
    gst_element_send_event(
        GST_ELEMENT(source_),
        gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM, gst_structure_new_empty(pictureEndName)));
}

// Never 0: that is the time of the picture for the description.
GstClockTime RtspFeeder::runningTimeAt(std::int64_t time) const {
    const GstClockTime now = gst_element_get_current_running_time(GST_ELEMENT(source_));
    const auto age = static_cast<GstClockTime>(
        std::max<std::int64_t>(0, std::chrono::steady_clock::now().time_since_epoch().count() - time));
    return now == GST_CLOCK_TIME_NONE || now <= age ? 1 : now - age;
}
