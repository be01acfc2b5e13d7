// A stream that is taken from the keeper of warm sources (camera-gateway) instead of from its encoder.
//
// The keeper has held the stream's packets since the last key picture, so a picture can be decoded at once. A player that
// does not get the stream here connects to the encoder itself.
#pragma once

#include "appliance/streams/kept_protocol.h"
#include "appliance/streams/stream_address.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace streams {

// The user of a kept stream. All functions are called on the thread of run(); views are valid during the call. Only those
// that belong to the stream's form are called.
struct KeptTaker {
    std::function<bool(std::string_view packet)> video; // false ends run()
    std::function<void(std::string_view packet)> sound;
    std::function<bool(std::string_view bytes)> bytes; // false ends run()
    std::function<void(std::string_view jpeg)> picture;
    // Called once: what comes from here on belongs to the newest picture and those after it. What came before it is only
    // for the decoder.
    std::function<void()> live;
};

class KeptStream {
public:
    static constexpr int answerMs = 20;
    // A keeper that sends nothing for so long is lost, and so is a stream whose packets have stopped coming to the keeper.
    static constexpr int silenceMs = 2000;

    // Asks the keeper for the stream. Null when there is no keeper, when it does not keep the stream, and when it has not
    // answered within the limit.
    static std::unique_ptr<KeptStream> open(const StreamAddress& address, int limitMs = answerMs);

    ~KeptStream();
    KeptStream(const KeptStream&) = delete;
    KeptStream& operator=(const KeptStream&) = delete;

    const KeptDescription& description() const { return description_; }

    // Passes on what the keeper sends, until the keeper or its stream is lost, the stream has ended, or the taker wants no
    // more. Returns the reason, for the log. Called once.
    std::string run(const KeptTaker& taker);

    // Makes run() return. Any thread.
    void end();

private:
    explicit KeptStream(int fd) : fd_(fd) {}
    bool awaitDescription(int limitMs);
    bool pass(const KeptTaker& taker, KeptFrame kind, std::string_view content);

    const int fd_;
    KeptFrameReader reader_;
    KeptDescription description_;
    std::string early_; // frames that came with the description
    std::string reason_;
};

} // namespace streams
