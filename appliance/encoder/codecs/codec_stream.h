// A channel's video in one codec, encoded once for all its readers.
//
// Encoding has its own thread and runs only while there are readers. Readers pull: each starts at a key picture, and a
// reader that falls behind continues at the newest key picture, so that a slow reader delays no other. A new reader
// makes the next picture a key picture, unless that is switched off.
#pragma once

#include "appliance/encoder/codecs/access_unit.h"
#include "appliance/encoder/codecs/video_encoder.h"
#include "appliance/encoder/pictures/picture_source.h"

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

    // Encodes one picture soon, so that the first reader does not wait for the codec to start.
    void warmUp();

    // For a client that shares an existing reader: makes the next picture a key picture, unless that is switched off.
    void welcomeNewcomer();

    // Ends every wait of a reader, now and later.
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
    std::deque<AccessUnitPtr> newest_; // the last few seconds
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

    // The next picture; the first one is a key picture. Null if none came within `timeout` or readers are stopped.
    AccessUnitPtr next(std::chrono::milliseconds timeout);

private:
    AccessUnitPtr take();

    CodecStream& stream_;
    std::uint64_t last_;  // number of the last picture that was returned or skipped
    bool inStep_ = false; // picture `last_` was returned, so its successor can be decoded
};
