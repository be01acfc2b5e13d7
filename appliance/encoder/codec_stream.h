// A channel's video in one codec, encoded once for all who read it.
//
// Encoding runs on a thread of its own, and only while somebody reads. Readers pull: each gets the stream
// from a key picture on, and one that falls behind goes on at the newest key picture, so nobody holds anybody
// up. A new reader makes the next picture a key picture, unless that was switched off.
#pragma once

#include "appliance/encoder/access_unit.h"
#include "appliance/encoder/picture_source.h"
#include "appliance/encoder/video_encoder.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

class CodecStream {
public:
    // The source must outlive it.
    CodecStream(PictureSource& source, CodecSettings settings, int width, int height);
    ~CodecStream();
    CodecStream(const CodecStream&) = delete;
    CodecStream& operator=(const CodecStream&) = delete;

    const CodecSettings& settings() const { return settings_; }
    int fps() const { return source_.fps(); }

    // Encodes one picture soon, so that the first reader need not wait for the encoder to start.
    void warmUp();

    // For somebody who joins a reader: makes the next picture a key picture, unless that was switched off.
    void welcomeNewcomer();

    void stopReaders();

private:
    friend class CodecReader;
    void run();
    void encodeWhileWanted(VideoEncoder& encoder);
    void add(const std::shared_ptr<AccessUnit>& unit);
    bool wanted() const { return readers_ > 0 || warmUp_; }

    PictureSource& source_;
    const CodecSettings settings_;
    const int width_;
    const int height_;
    std::thread thread_;

    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    std::deque<AccessUnitPtr> newest_; // some seconds of them
    std::uint64_t lastNumber_ = 0;
    int readers_ = 0;
    bool keyWanted_ = false;
    bool warmUp_ = false; // until the first picture
    bool readersStopped_ = false;
    bool stopping_ = false;
};

class CodecReader {
public:
    explicit CodecReader(CodecStream& stream);
    ~CodecReader();
    CodecReader(const CodecReader&) = delete;
    CodecReader& operator=(const CodecReader&) = delete;

    // The next picture, a key picture first. Null when none came within `timeout` or when readers are
    // stopped.
    AccessUnitPtr next(std::chrono::milliseconds timeout);

private:
    AccessUnitPtr take();

    CodecStream& stream_;
    std::uint64_t last_;  // number of the last one that was given or passed over
    bool inStep_ = false; // the one before the next was given, too
};
