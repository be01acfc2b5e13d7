#include "appliance/players/decoding/jpeg_thread.h"

#include "appliance/players/decoding/jpeg_decoder.h"

#include <chrono>
#include <thread>

namespace player {
namespace {

constexpr std::chrono::seconds patience{10};

} // namespace

void JpegThread::start(const StreamSink& sink) {
    std::thread([this, &sink] { run(sink); }).detach();
}

void JpegThread::feed(std::string_view jpeg) {
    const std::lock_guard guard(lock_);
    waiting_ = jpeg;
    changed_.notify_all();
}

void JpegThread::finish() {
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, patience, [this] { return waiting_.empty() && !decoding_; });
}

void JpegThread::run(const StreamSink& sink) {
    JpegDecoder decoder;
    std::string jpeg;
    std::unique_lock guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return !waiting_.empty(); });
        jpeg.swap(waiting_); // both keep their memory
        waiting_.clear();
        decoding_ = true;
        guard.unlock();
        if (const auto picture = decoder.decode(jpeg))
            sink.picture(*picture);
        guard.lock();
        decoding_ = false;
        changed_.notify_all();
    }
}

} // namespace player
