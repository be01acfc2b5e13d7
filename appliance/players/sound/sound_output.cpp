#include "appliance/players/sound/sound_output.h"

#include "appliance/players/decoding/gst_start.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <array>
#include <chrono>
#include <gst/app/gstappsink.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace player {
namespace {

constexpr std::size_t blockFrames = soundRate / 100;
constexpr int pollMs = 10;
constexpr std::int64_t settingsUs = 300'000;
constexpr std::int64_t retryUs = 10'000'000;

GstFlowReturn onSound(GstAppSink* appSink, void* output) {
    GstSample* sample = gst_app_sink_pull_sample(appSink);
    if (sample == nullptr)
        return GST_FLOW_EOS;
    GstMapInfo map;
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ) == TRUE) {
        static_cast<SoundOutput*>(output)->put(reinterpret_cast<const SoundFrame*>(map.data),
                                               map.size / sizeof(SoundFrame));
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

// The resampler begins anew, with a small jump, where the times of two buffers do not fit together. They are times of
// arrival, which vary. Here the samples follow each other whenever they came.
GstPadProbeReturn forgetTimes(GstPad* /*pad*/, GstPadProbeInfo* info, void* /*nothing*/) {
    GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_BUFFER_PTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_FLAG_UNSET(buffer, GST_BUFFER_FLAG_DISCONT | GST_BUFFER_FLAG_RESYNC);
    info->data = buffer;
    return GST_PAD_PROBE_OK;
}

} // namespace

static_assert(soundRate == 48'000 && soundChannels == 2 && G_BYTE_ORDER == G_LITTLE_ENDIAN);
const char* const soundSink = "audioconvert name=samples ! audioresample ! "
                              "audio/x-raw,format=S16LE,layout=interleaved,rate=48000,channels=2 ! "
                              "appsink name=sound sync=false max-buffers=100 drop=true";

bool SoundOutput::start() {
    loadWhereInstalled({"pulseaudio", "alsa"});
    if (!loadPlugins({"coreelements", "audioconvert", "audioresample"}))
        return false;
    std::thread([this] { run(); }).detach();
    return true;
}

bool SoundOutput::wanted() const {
    const std::lock_guard guard(lock_);
    return settings_.enabled && mayPlay();
}

void SoundOutput::takeFrom(GstElement* pipeline) {
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sound");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &onSound;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);
    gst_object_unref(sink);
    GstElement* samples = gst_bin_get_by_name(GST_BIN(pipeline), "samples");
    GstPad* pad = gst_element_get_static_pad(samples, "sink");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &forgetTimes, nullptr, nullptr);
    gst_object_unref(pad);
    gst_object_unref(samples);
}

void SoundOutput::put(const SoundFrame* frames, std::size_t count) {
    if (playing_)
        flow_.put(frames, count);
}

void SoundOutput::end(int patienceMs) {
    ending_ = true;
    std::unique_lock guard(lock_);
    closedOnce_.wait_for(guard, std::chrono::milliseconds(patienceMs), [this] { return closed_; });
}

bool SoundOutput::mayPlay() const {
    return !ending_ && sink_.showing();
}

void SoundOutput::readSettings() {
    const std::int64_t now = gettimeusec();
    if (now < settingsDue_)
        return;
    settingsDue_ = now + settingsUs;
    sound::Settings read = sound::settings();
    const std::lock_guard guard(lock_);
    if (read.device != settings_.device)
        retry_ = 0;
    settings_ = std::move(read);
}

void SoundOutput::run() {
    for (;;) {
        readSettings();
        if (device_ != nullptr)
            play();
        else if (wanted() && gettimeusec() >= retry_ && soundLock_.take())
            openDevice();
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(pollMs));
    }
}

void SoundOutput::openDevice() {
    deviceName_ = settings_.device;
    device_ = openSoundDevice(deviceName_);
    if (device_ != nullptr) {
        const std::lock_guard guard(lock_);
        closed_ = false;
        silence_ = 0;
        playing_ = true;
        return;
    }
    soundLock_.release();
    retry_ = gettimeusec() + retryUs;
    if (!std::exchange(reported_, true))
        logmsg(7, "There is no sound device \"%s\": no sound is played", deviceName_.c_str());
}

void SoundOutput::closeDevice() {
    playing_ = false;
    device_.reset();
    flow_.clear();
    soundLock_.release();
    const std::lock_guard guard(lock_);
    closed_ = true;
    closedOnce_.notify_all();
}

// Passes one block on. Closes the device when the sound has faded out and was heard to its end.
void SoundOutput::play() {
    const bool stays = wanted() && settings_.device == deviceName_;
    flow_.setGain(stays ? sound::gainOf(settings_) : 0);
    silence_ = flow_.silent() ? silence_ + blockFrames : 0;
    std::array<SoundFrame, blockFrames> block;
    flow_.next(block.data(), block.size());
    if (!device_->write(block.data(), block.size())) {
        logmsg(6, "The sound device \"%s\" is gone", deviceName_.c_str());
        retry_ = gettimeusec() + retryUs;
        closeDevice();
    } else if (!stays && silence_ > device_->latency()) {
        closeDevice();
    }
}

} // namespace player
