#include "appliance/players/decoding/byte_pictures.h"

#include "appliance/players/decoding/mpeg2_units.h"
#include "appliance/streams/elementary_reader.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace player {
namespace {

constexpr std::size_t mostWaiting = 1024 * 1024;
constexpr std::chrono::seconds finishPatience{10};
// Encoders send a picture at once. When nothing has followed the first picture's last row for this time, it is decoded
// without waiting for the next one, and decoded again when it is known to be complete.
constexpr std::chrono::milliseconds pause{5};
constexpr const char* codec = "mpeg2video";

struct Piece {
    std::string bytes;
    bool shown = true;
};

} // namespace

struct BytePictures::State {
    State(const StreamSink& given, MakeDecoder maker)
        : sink(given), make(std::move(maker)),
          units([this](const std::string& unit, bool show) { decode(unit, show); }) {}

    void run();
    void decode(const std::string& unit, bool shown);
    std::deque<Piece> await();
    void take(const Piece& piece);
    void decodeFirst();
    bool isEnding();
    void finishStream();

    const StreamSink& sink;
    const MakeDecoder make;

    std::mutex lock; // guards all until the empty line
    std::condition_variable changed;
    std::deque<Piece> pieces;
    std::size_t waiting = 0; // bytes in pieces
    bool ending = false;     // the stream has ended, and its last picture is not decoded yet
    bool failed = false;

    // Of the decoding thread.
    std::unique_ptr<UnitDecoder> decoder;
    Mpeg2Units units;
    std::string begin;                                 // the first bytes, until the container is known
    std::unique_ptr<streams::ElementaryReader> reader; // null: the container is not known yet
    bool hasFirst = false;                             // the first picture was decoded early
    bool shown = true;                                 // of the piece that is taken now
};

BytePictures::BytePictures(const StreamSink& sink, MakeDecoder make)
    : state_(*new State(sink, std::move(make))) {
    std::thread([&state = state_] { state.run(); }).detach();
}

bool BytePictures::feed(const char* bytes, std::size_t count, bool shown) {
    std::unique_lock guard(state_.lock);
    state_.changed.wait(guard, [this] { return state_.waiting < mostWaiting || state_.failed; });
    state_.pieces.push_back({std::string(bytes, count), shown});
    state_.waiting += count;
    state_.changed.notify_all();
    return !state_.failed;
}

void BytePictures::finish() {
    std::unique_lock guard(state_.lock);
    state_.ending = true;
    state_.changed.notify_all();
    state_.changed.wait_for(guard, finishPatience, [this] { return !state_.ending || state_.failed; });
}

void BytePictures::State::decode(const std::string& unit, bool show) {
    decoder->decode(reinterpret_cast<const std::uint8_t*>(unit.data()), unit.size(),
                    [&](const screen::PictureView& picture) {
                        if (show)
                            sink.picture(picture);
                    });
}

// Waits for pieces; returns none when there is a pause in the stream or its end.
std::deque<Piece> BytePictures::State::await() {
    std::unique_lock guard(lock);
    const auto any = [this] { return !pieces.empty() || ending; };
    if (!hasFirst && !units.firstPicture().empty())
        changed.wait_for(guard, pause, any);
    else
        changed.wait(guard, any);
    waiting = 0;
    changed.notify_all();
    return std::exchange(pieces, {});
}

void BytePictures::State::take(const Piece& piece) {
    shown = piece.shown;
    if (reader != nullptr)
        return reader->feed(piece.bytes);
    begin += piece.bytes;
    if (begin.size() < streams::containerBytes)
        return;
    reader = std::make_unique<streams::ElementaryReader>(
        streams::containerOf(begin), [this](std::string_view video) { units.feed(video, shown); });
    reader->feed(begin);
    begin.clear();
}

void BytePictures::State::decodeFirst() {
    hasFirst = true;
    decode(units.firstPicture(), shown);
    decoder->open(codec, nullptr, 0);
}

bool BytePictures::State::isEnding() {
    const std::lock_guard guard(lock);
    return ending;
}

void BytePictures::State::finishStream() {
    units.end();
    const std::lock_guard guard(lock);
    ending = false;
    changed.notify_all();
}

void BytePictures::State::run() {
    decoder = make();
    if (decoder == nullptr || !decoder->open(codec, nullptr, 0)) {
        {
            const std::lock_guard guard(lock);
            failed = true;
            changed.notify_all();
        }
        return sink.ended("the decoder can't be started");
    }
    for (;;) {
        const std::deque<Piece> taken = await();
        for (const Piece& piece : taken)
            take(piece);
        if (taken.empty() && isEnding())
            finishStream();
        else if (taken.empty())
            decodeFirst();
    }
}

} // namespace player
