// Plays the sound of the player that is on the screen.
//
// A thread of its own passes the samples from a SoundFlow to the device, as long as the player shows and the settings
// of sound_control allow it. It holds the SoundLock meanwhile. A player that leaves fades out, closes the device and
// releases the lock; the next one takes it and fades in. A change of the settings takes effect within half a second.
// A machine without a device is no error: the samples are dropped, and the device is tried again from time to time.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/players/sound/sound_device.h"
#include "appliance/players/sound/sound_flow.h"
#include "appliance/players/sound/sound_lock.h"
#include "appliance/sound/sound_control.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <gst/gst.h>
#include <memory>
#include <mutex>
#include <string>

namespace player {

class SoundOutput {
public:
    // `sink` must outlive the object.
    explicit SoundOutput(const StreamSink& sink) : sink_(sink) {}
    SoundOutput(const SoundOutput&) = delete;
    SoundOutput& operator=(const SoundOutput&) = delete;
    // Never destroyed: its thread runs until the process ends.

    // Starts the thread and loads the plugins that all sound needs; called when the player shows, because loading them
    // earlier would delay the picture. False with a log line when a plugin is missing. Called once.
    bool start();

    // Whether samples are wanted: the player shows and the sound is not disabled. Any thread.
    bool wanted() const;

    // Whether a device plays the samples now. Any thread.
    bool playing() const { return playing_; }

    // Takes the samples that leave the pipeline's element "sound". The object must outlive the pipeline.
    void takeFrom(GstElement* pipeline);

    // Takes samples. Any thread.
    void put(const SoundFrame* frames, std::size_t count);

    // Fades out and closes the device, because the player ends; waits for that, but not longer than `patienceMs`. Any
    // thread.
    void end(int patienceMs);

private:
    [[noreturn]] void run();
    bool mayPlay() const;
    void readSettings();
    void openDevice();
    void closeDevice();
    void play();

    const StreamSink& sink_;
    SoundFlow flow_;
    std::atomic<bool> playing_{false};
    std::atomic<bool> ending_{false};

    mutable std::mutex lock_; // guards settings_ and closed_
    std::condition_variable closedOnce_;
    sound::Settings settings_ = sound::settings();
    bool closed_ = true; // no device is open

    // Of the thread alone.
    SoundLock soundLock_;
    std::unique_ptr<SoundDevice> device_; // null: not open
    std::string deviceName_;              // of the last attempt to open one
    std::size_t silence_ = 0;             // frames of silence written since the sound faded out
    std::int64_t settingsDue_ = 0;        // when the settings are read again
    std::int64_t retry_ = 0;              // not to be opened again before this time
    bool reported_ = false;
};

// The end of a decoding pipeline for sound, in the syntax of gst-launch.
extern const char* const soundSink;

} // namespace player
