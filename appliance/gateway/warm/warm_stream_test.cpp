#include "appliance/gateway/warm/warm_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace gateway;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

class FakeFeed : public StreamFeed {};

KeptItem item(const std::string& bytes, std::uint64_t unit, bool key = false) {
    KeptItem made;
    made.bytes = std::make_shared<const std::string>(bytes);
    made.unit = unit;
    made.newPicture = true;
    made.key = key;
    return made;
}

KeptItem soundItem(const std::string& bytes) {
    KeptItem made;
    made.kind = streams::KeptFrame::sound;
    made.bytes = std::make_shared<const std::string>(bytes);
    return made;
}

// A stream whose feed is the test.
class WarmStreamTest : public testing::Test {
protected:
    void open(streams::KeptDescription::Form form = streams::KeptDescription::Form::packets) {
        streams::KeptDescription description;
        description.form = form;
        if (form == streams::KeptDescription::Form::packets) {
            description.video.emplace();
            description.video->encodingName = "H264";
        }
        events.opened(description);
    }
    void give(const KeptItem& one, bool held = false) { events.item(one, held); }

    WarmStream::TakerId join() {
        return stream.join(
            {.description = [this](const auto& /*description*/) { got.emplace_back("description"); },
             .item = [this](const KeptItem& one, bool /*start*/) { got.push_back(*one.bytes); },
             .live = [this] { got.emplace_back("live"); },
             .flush = [this] { ++flushes; },
             .ended = [this](const std::string& reason) { got.push_back("ended: " + reason); }});
    }

    EventLoop loop;
    FeedEvents events;
    int feeds = 0;
    Texts got;
    int flushes = 0;
    std::shared_ptr<KeptBudget> budget = std::make_shared<KeptBudget>(KeptBudget{1 << 20, 0});
    WarmStream stream{loop, "The stream of the test", budget, [this](FeedEvents given) {
                          events = std::move(given);
                          ++feeds;
                          return std::make_unique<FakeFeed>();
                      }};
};

} // namespace

TEST_F(WarmStreamTest, IsNotGivenBeforeItsFirstKeyPicture) {
    EXPECT_EQ(join(), 0U);
    EXPECT_EQ(stream.report().reason, "connecting");
    open();
    EXPECT_EQ(join(), 0U);
    give(item("p", 1));
    EXPECT_EQ(join(), 0U);
    EXPECT_EQ(stream.report().reason, "waits for a key picture");
    EXPECT_THAT(got, IsEmpty());
}

TEST_F(WarmStreamTest, WhatIsKeptComesFirstAndTheNewestPictureIsLive) {
    open();
    give(item("K", 1, true));
    give(item("p", 2));
    give(item("q", 3));
    EXPECT_NE(join(), 0U);
    give(item("r", 4));
    give(soundItem("s"));
    EXPECT_THAT(got, ElementsAre("description", "K", "p", "live", "q", "r", "s"));
    EXPECT_EQ(stream.report().takers, 1U);
    EXPECT_TRUE(stream.report().moves);
    EXPECT_EQ(flushes, 1);
}

TEST_F(WarmStreamTest, PacketsAreHandedOnAsTheyCome) {
    open();
    give(item("K", 10, true));
    join();
    for (const char* bytes : {"3", "5", "4", "not a packet"})
        give(item(bytes, 11));
    EXPECT_THAT(got, ElementsAre("description", "live", "K", "3", "5", "4", "not a packet"));
}

TEST_F(WarmStreamTest, OfWholePicturesTheLastIsGiven) {
    open(streams::KeptDescription::Form::pictures);
    give(item("first", 1, true));
    give(item("second", 2, true));
    join();
    EXPECT_THAT(got, ElementsAre("description", "live", "second"));
}

TEST_F(WarmStreamTest, ATakerThatLeavesGetsNothingMore) {
    open();
    give(item("K", 1, true));
    stream.leave(join());
    give(item("p", 2));
    EXPECT_THAT(got, ElementsAre("description", "live", "K"));
}

TEST_F(WarmStreamTest, TheEndOfTheStreamIsToldAndNothingIsKept) {
    open();
    give(item("K", 1, true));
    join();
    events.ended("the encoder ended the stream");
    EXPECT_EQ(got.back(), "ended: the encoder ended the stream");
    EXPECT_EQ(join(), 0U);
    EXPECT_EQ(stream.report().reason, "the encoder ended the stream");
    EXPECT_EQ(budget->used, 0U);
    EXPECT_EQ(feeds, 1) << "it is connected with again only after a second";
}

TEST_F(WarmStreamTest, AStreamThatStandsStillIsNotGiven) {
    open();
    give(item("K", 1, true));
    std::this_thread::sleep_for(std::chrono::microseconds(WarmStream::longestPauseUs + 50'000));
    EXPECT_EQ(join(), 0U);
    EXPECT_EQ(stream.report().reason, "sends nothing");
    give(item("held", 1), true);
    EXPECT_EQ(join(), 0U) << "what was held before does not show that it moves";
    give(item("p", 2));
    EXPECT_NE(join(), 0U);
}

TEST_F(WarmStreamTest, AFailedStreamIsConnectedWithAgainAfterASecond) {
    events.ended("refused");
    const auto start = std::chrono::steady_clock::now();
    loop.after(std::chrono::milliseconds(1300), [this] { loop.end(); });
    loop.run();
    EXPECT_EQ(feeds, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}
