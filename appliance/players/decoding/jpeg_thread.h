// Decodes JPEG pictures on a thread of its own.
#pragma once

#include "appliance/players/decoding/stream_sink.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>

namespace player {

// Keeps only the newest picture that waits to be decoded: when decoding is too slow, pictures are left out, and what is
// shown does not fall behind the stream.
class JpegThread {
public:
    JpegThread() = default;
    JpegThread(const JpegThread&) = delete;
    JpegThread& operator=(const JpegThread&) = delete;
    // Never destroyed: its thread runs until the process ends.

    // Starts the thread. `sink` must outlive the object.
    void start(const StreamSink& sink);

    // Passes a complete picture in; it replaces one that is still waiting. Any thread.
    void feed(std::string_view jpeg);

    // Waits until every picture that was passed in is decoded, at most ten seconds. Called before the end of the stream
    // is reported, so that its last picture counts. Any thread.
    void finish();

private:
    [[noreturn]] void run(const StreamSink& sink);

    std::mutex lock_;                 // guards all that follows
    std::condition_variable changed_; // waiting_ or decoding_ changed
    std::string waiting_;             // "": none
    bool decoding_ = false;
};

} // namespace player
