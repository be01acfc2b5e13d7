// Packets and bytes that come before their decoder is loaded.
#include "appliance/players/decoding/packet_pictures.h"

#include "appliance/players/decoding/byte_pictures.h"
#include "appliance/streams/rtp/rtp_packet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

namespace player {
namespace {

using testing::ElementsAre;

constexpr std::chrono::seconds patience{30};

// What the threads did. Never destroyed, like the threads.
struct Notes {
    std::mutex lock; // guards the rest
    std::condition_variable changed;
    std::vector<std::string> units;
    std::vector<int> shown; // the number of the unit of each shown picture, from 1
    std::string end;
    std::string codec;
    std::string description;

    template<class Condition>
    bool eventually(Condition condition) {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, patience, condition);
    }
};

// Every unit is a picture.
class FakeDecoder : public UnitDecoder {
public:
    explicit FakeDecoder(Notes& notes) : notes_(notes) {}
    bool open(const std::string& codec, const std::uint8_t* description, std::size_t bytes) override {
        const std::lock_guard guard(notes_.lock);
        notes_.codec = codec;
        notes_.description.assign(reinterpret_cast<const char*>(description), bytes);
        return true;
    }
    bool decode(const std::uint8_t* unit, std::size_t bytes, const Give& give) override {
        {
            const std::lock_guard guard(notes_.lock);
            notes_.units.emplace_back(reinterpret_cast<const char*>(unit), bytes);
        }
        give({});
        notes_.changed.notify_all();
        return true;
    }

private:
    Notes& notes_;
};

class WaitingForADecoder : public testing::Test {
protected:
    std::unique_ptr<UnitDecoder> make() {
        loaded_.acquire();
        return works_ ? std::make_unique<FakeDecoder>(notes_) : nullptr;
    }
    std::string packet(const std::string& payload, std::uint32_t time) {
        return streams::makeRtp({.marker = true,
                                 .payloadType = 96,
                                 .sequence = sequence_++,
                                 .timestamp = time,
                                 .payload = payload});
    }
    bool decoded(std::size_t units) {
        return notes_.eventually([&] { return notes_.units.size() >= units; });
    }

    Notes& notes_ = *new Notes;
    std::counting_semaphore<>& loaded_ = *new std::counting_semaphore<>(0);
    bool works_ = true;
    std::uint16_t sequence_ = 1;
    const StreamSink& sink_ = *new StreamSink{[&notes = notes_](const screen::PictureView&) {
                                                  const std::lock_guard guard(notes.lock);
                                                  notes.shown.push_back(static_cast<int>(notes.units.size()));
                                              },
                                              [&notes = notes_](const std::string& reason) {
                                                  const std::lock_guard guard(notes.lock);
                                                  notes.end = reason;
                                                  notes.changed.notify_all();
                                              },
                                              [] { return false; }, [] {}};
};

const std::string code("\0\0\0\1", 4);
const std::string idr = "\x65"
                        "a";
const std::string slice = "\x41"
                          "b";

TEST_F(WaitingForADecoder, PacketsAreNotLost) {
    auto& pictures = *new PacketPictures(sink_, [this] { return make(); });
    streams::DescribedStream stream;
    stream.encodingName = "H264";
    pictures.begin(stream, false);
    EXPECT_TRUE(pictures.feed(packet(idr, 1)));
    EXPECT_TRUE(pictures.feed(packet(slice, 2)));
    {
        const std::lock_guard guard(notes_.lock);
        EXPECT_TRUE(notes_.units.empty());
    }
    loaded_.release();
    ASSERT_TRUE(decoded(2));
    EXPECT_TRUE(pictures.feed(packet(slice, 3)));
    ASSERT_TRUE(decoded(3));
    const std::lock_guard guard(notes_.lock);
    EXPECT_EQ(notes_.codec, "h264");
    EXPECT_THAT(notes_.units, ElementsAre(code + idr, code + slice, code + slice));
}

TEST_F(WaitingForADecoder, WhatIsBehindIsDecodedAndNotShown) {
    auto& pictures = *new PacketPictures(sink_, [this] { return make(); });
    streams::DescribedStream stream;
    stream.encodingName = "H264";
    pictures.begin(stream, true);
    pictures.feed(packet(idr, 1), false);
    pictures.feed(packet(slice, 2), false);
    pictures.feed(packet(slice, 3), true);
    loaded_.release();
    ASSERT_TRUE(decoded(3));
    ASSERT_TRUE(notes_.eventually([&] { return !notes_.shown.empty(); }));
    const std::lock_guard guard(notes_.lock);
    EXPECT_THAT(notes_.shown, ElementsAre(3));
}

TEST_F(WaitingForADecoder, ItGetsTheHeadersOfTheDescription) {
    auto& pictures = *new PacketPictures(sink_, [this] { return make(); });
    streams::DescribedStream stream;
    stream.encodingName = "MP4V-ES";
    stream.fmtp = "96 profile-level-id=1;config=000001B0F5;x=y";
    loaded_.release();
    pictures.begin(stream, true);
    const std::string picture("\0\0\1\xb6\x10", 5);
    pictures.feed(packet(picture, 1));
    ASSERT_TRUE(decoded(1));
    const std::lock_guard guard(notes_.lock);
    EXPECT_EQ(notes_.description, std::string("\0\0\1\xb0\xf5", 5));
}

TEST_F(WaitingForADecoder, WithoutOneTheStreamEnds) {
    works_ = false;
    auto& pictures = *new PacketPictures(sink_, [this] { return make(); });
    streams::DescribedStream stream;
    stream.encodingName = "H265";
    pictures.begin(stream, true);
    loaded_.release();
    ASSERT_TRUE(notes_.eventually([&] { return !notes_.end.empty(); }));
    EXPECT_EQ(notes_.end, "the decoder can't be started");
    EXPECT_FALSE(pictures.feed(packet(idr, 1)));
    auto& bytes = *new BytePictures(sink_, [this] { return make(); });
    loaded_.release();
    int attempts = 10'000; // each a millisecond
    while (bytes.feed("bytes", 5) && --attempts > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_GT(attempts, 0) << "bytes are taken, and nobody decodes them";
}

// An MPEG-2 elementary stream of 16x16 pixels.
std::string mpegPicture(int type) {
    const std::string sequence("\0\0\1\xb3\x01\x00\x10\x13\xff\xff\xe0\x18", 12);
    const std::string header{'\0', '\0', '\1', '\0', '\0', static_cast<char>(type << 3), '\xff', '\xf8'};
    return (type == 1 ? sequence : "") + header + std::string("\0\0\1\1", 4) + std::string(600, 'd');
}

TEST_F(WaitingForADecoder, BytesAreNotLost) {
    auto& pictures = *new BytePictures(sink_, [this] { return make(); });
    const std::string stream = mpegPicture(1) + mpegPicture(2);
    EXPECT_TRUE(pictures.feed(stream.data(), stream.size()));
    loaded_.release();
    ASSERT_TRUE(decoded(1));
    const std::string more = mpegPicture(2);
    EXPECT_TRUE(pictures.feed(more.data(), more.size()));
    pictures.finish();
    const std::lock_guard guard(notes_.lock);
    EXPECT_EQ(notes_.codec, "mpeg2video");
    EXPECT_THAT(notes_.units, ElementsAre(mpegPicture(1), mpegPicture(2), mpegPicture(2)));
}

TEST_F(WaitingForADecoder, TheFirstPictureOfBytesDoesNotWaitForTheSecond) {
    loaded_.release();
    auto& pictures = *new BytePictures(sink_, [this] { return make(); });
    const std::string first = mpegPicture(1);
    EXPECT_TRUE(pictures.feed(first.data(), first.size()));
    ASSERT_TRUE(decoded(1));
    const std::string second = mpegPicture(2);
    EXPECT_TRUE(pictures.feed(second.data(), second.size()));
    pictures.finish();
    const std::lock_guard guard(notes_.lock);
    EXPECT_THAT(notes_.units, ElementsAre(first, first, second))
        << "the first one is decoded again as a whole";
}

} // namespace
} // namespace player
