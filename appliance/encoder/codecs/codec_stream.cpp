#include "appliance/encoder/codecs/codec_stream.h"

#include "appliance/encoder/base/log.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t keptUnits = 64;
constexpr std::chrono::milliseconds pictureTime(250);
constexpr std::chrono::seconds restartPause(1);

} // namespace

CodecStream::CodecStream(PictureSource& source, CodecSettings settings, int width, int height)
    : source_(source), settings_(settings), width_(width), height_(height) {
    thread_ = std::thread(&CodecStream::run, this);
}

CodecStream::~CodecStream() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void CodecStream::warmUp() {
    const std::lock_guard lock(mutex_);
    warmUp_ = true;
    changed_.notify_all();
}

void CodecStream::stopReaders() {
    const std::lock_guard lock(mutex_);
    readersStopped_ = true;
    changed_.notify_all();
}

void CodecStream::welcomeNewcomer() {
    const std::lock_guard lock(mutex_);
    keyWanted_ = keyWanted_ || settings_.keyForNewcomer;
}

void CodecStream::run() {
    // Kept while there are no readers, because starting a codec would delay the next reader's first picture.
    std::unique_ptr<VideoEncoder> encoder;
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopping_ || wanted(); });
        if (stopping_)
            return;
        lock.unlock();
        if (!encoder && !(encoder = VideoEncoder::open(settings_, width_, height_, source_.fps())))
            logLine("the codec cannot be opened");
        if (encoder)
            encodeWhileWanted(*encoder);
        lock.lock();
        if (wanted() && !stopping_ && !readersStopped_) {
            // It failed. A new one may succeed, for example when memory was short.
            encoder.reset();
            changed_.wait_for(lock, restartPause, [this] { return stopping_; });
        }
        if (readersStopped_)
            changed_.wait(lock, [this] { return stopping_; });
    }
}

// Returns when no reader is left, or after a failure.
void CodecStream::encodeWhileWanted(VideoEncoder& encoder) {
    Subscription pictures(source_);
    while (true) {
        const PicturePtr picture = pictures.next(pictureTime);
        bool asKey = false;
        {
            const std::lock_guard lock(mutex_);
            if (stopping_ || readersStopped_ || !wanted())
                return;
            if (picture)
                asKey = std::exchange(keyWanted_, false);
        }
        if (!picture)
            continue;
        auto unit = std::make_shared<AccessUnit>();
        unit->bytes = encoder.encode(*picture, asKey);
        if (unit->bytes.empty()) {
            logLine("the codec failed and is started again");
            return;
        }
        unit->key = isKey(settings_.codec, unit->bytes);
        unit->time = picture->time;
        add(unit);
    }
}

void CodecStream::add(const std::shared_ptr<AccessUnit>& unit) {
    const std::lock_guard lock(mutex_);
    unit->number = ++lastNumber_;
    warmUp_ = false;
    newest_.push_back(unit);
    if (newest_.size() > keptUnits)
        newest_.pop_front();
    changed_.notify_all();
}

CodecReader::CodecReader(CodecStream& stream) : stream_(stream) {
    const std::lock_guard lock(stream_.mutex_);
    ++stream_.readers_;
    stream_.keyWanted_ = stream_.keyWanted_ || stream_.settings_.keyForNewcomer || stream_.readers_ == 1;
    last_ = stream_.lastNumber_; // existing pictures may be old
    stream_.changed_.notify_all();
}

CodecReader::~CodecReader() {
    const std::lock_guard lock(stream_.mutex_);
    --stream_.readers_;
}

AccessUnitPtr CodecReader::next(std::chrono::milliseconds timeout) {
    std::unique_lock lock(stream_.mutex_);
    AccessUnitPtr unit;
    stream_.changed_.wait_for(lock, timeout,
                              [&] { return stream_.readersStopped_ || (unit = take()) != nullptr; });
    return stream_.readersStopped_ ? nullptr : unit;
}

AccessUnitPtr CodecReader::take() {
    const auto& units = stream_.newest_;
    auto at =
        std::find_if(units.begin(), units.end(), [this](const auto& unit) { return unit->number > last_; });
    if (at == units.end())
        return nullptr;
    if (!inStep_ || (*at)->number != last_ + 1) {
        // New, or fallen behind: continue at the newest key picture.
        inStep_ = false;
        const auto newestKey =
            std::find_if(units.rbegin(), units.rend(), [](const auto& unit) { return unit->key; });
        if (newestKey == units.rend() || (*newestKey)->number <= last_)
            return nullptr;
        at = std::prev(newestKey.base());
    }
    inStep_ = true;
    last_ = (*at)->number;
    return *at;
}
