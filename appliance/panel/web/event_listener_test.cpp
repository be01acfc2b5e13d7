#include "appliance/panel/web/event_listener.h"

#include "appliance/panel/web/stream_ends.h"

#include <gmock/gmock.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace panel {
namespace {

constexpr std::int64_t second = 1000000;
constexpr std::size_t muchText = 2'000'000; // more than a socket takes

class PanelListener : public testing::Test {
protected:
    void SetUp() override { begin(); }

    void begin() {
        ends_ = makeStreamEnds(serverLimits_);
        ASSERT_NE(ends_.connection, nullptr);
        ends_.connection->becomeEventStream();
        endedCount_ = 0;
        listener_ =
            std::make_unique<EventListener>(ends_.connection, ListenerInfo{Role::Viewer, "vera", "key"},
                                            limits_, "HEAD\r\n\r\n", [this](const EventListener* who) {
                                                EXPECT_EQ(who, listener_.get());
                                                ++endedCount_;
                                            });
    }
    ClientEnd& client() { return *ends_.client; }
    bool received(const std::string& text) {
        return runUntil([&] { return client().received() == text; });
    }
    // Fills the socket, so that everything further waits.
    void stall() {
        listener_->send("status", std::string(muchText, 'a'));
        for (int turn = 0; turn < 20; ++turn)
            g_main_context_iteration(nullptr, FALSE);
    }
    static std::int64_t in(unsigned seconds) { return g_get_monotonic_time() + seconds * second; }

    ServerLimits serverLimits_;
    StreamLimits limits_;
    StreamEnds ends_;
    std::unique_ptr<EventListener> listener_;
    int endedCount_ = 0;
};

TEST_F(PanelListener, SendsTheHeadAndEventsInOrder) {
    EXPECT_TRUE(received("HEAD\r\n\r\n"));
    listener_->send("status", "{}");
    listener_->send("change", "1");
    listener_->send("change", "2");
    EXPECT_TRUE(received(
        "HEAD\r\n\r\nevent: status\ndata: {}\n\nevent: change\ndata: 1\n\nevent: change\ndata: 2\n\n"));
    listener_->send("status", "[]");
    EXPECT_TRUE(runUntil([this] { return client().received().ends_with("event: status\ndata: []\n\n"); }));
    EXPECT_EQ(listener_->info().account, "vera");
    EXPECT_EQ(endedCount_, 0);
}

TEST_F(PanelListener, SlowClientGetsTheNewestOfEachTypeOnly) {
    stall();
    for (int number = 1; number <= 1000; ++number) {
        listener_->send("picture", std::to_string(number));
        listener_->send("change", std::to_string(number));
    }
    EXPECT_TRUE(runUntil([this] { return client().received().ends_with("event: change\ndata: 1000\n\n"); }));
    const std::string& all = client().received();
    EXPECT_THAT(all, HasSubstr("event: picture\ndata: 1000\n\n"));
    EXPECT_EQ(all.find("event: picture\ndata: 999\n"), std::string::npos);
    EXPECT_THAT(all, HasSubstr("event: change\ndata: 901\n\n"));
    EXPECT_EQ(all.find("event: change\ndata: 900\n"), std::string::npos) << "a hundred wait in order";
}

TEST_F(PanelListener, ClientThatTakesNothingIsCut) {
    stall();
    listener_->checkTime(in(limits_.longestStall - 1));
    EXPECT_EQ(endedCount_, 0);
    listener_->checkTime(in(limits_.longestStall + 1));
    EXPECT_EQ(endedCount_, 1);
    EXPECT_FALSE(ends_.connection->isOpen());
    listener_->checkTime(in(limits_.longestStall + 1));
    EXPECT_EQ(endedCount_, 1);
}

TEST_F(PanelListener, ClientThatTakesEverythingMayBeIdle) {
    listener_->send("status", "{}");
    EXPECT_TRUE(runUntil([this] { return client().received().ends_with("{}\n\n"); }));
    g_main_context_iteration(nullptr, FALSE);
    listener_->checkTime(in(limits_.longestStall * 100));
    EXPECT_EQ(endedCount_, 0);
}

TEST_F(PanelListener, ClientForWhomTooMuchWaitsIsCut) {
    limits_.mostWaiting = 1000;
    begin();
    stall();
    listener_->send("sources", std::string(2000, 'b'));
    listener_->checkTime(in(0));
    EXPECT_EQ(endedCount_, 1);
}

TEST_F(PanelListener, ClosedClientIsNoticedWithoutAnEvent) {
    client().close();
    EXPECT_TRUE(runUntil([this] { return endedCount_ == 1; }));
    listener_->send("status", "{}");
    listener_->end();
    EXPECT_EQ(endedCount_, 1);
}

TEST_F(PanelListener, ClientThatSendsIsCut) {
    client().send("x");
    EXPECT_TRUE(runUntil([this] { return endedCount_ == 1; }));
    EXPECT_TRUE(client().ended());
}

TEST_F(PanelListener, MayBeDestroyedWhenItEnds) {
    std::unique_ptr<EventListener> doomed;
    StreamEnds ends = makeStreamEnds(serverLimits_);
    doomed = std::make_unique<EventListener>(ends.connection, ListenerInfo{}, limits_, "HEAD",
                                             [&doomed](const EventListener*) { doomed.reset(); });
    ends.client->close();
    EXPECT_TRUE(runUntil([&doomed] { return doomed == nullptr; }));
}

TEST_F(PanelListener, EndSendsWhatFitsAndCloses) {
    listener_->send("session", "{}");
    listener_->end();
    EXPECT_EQ(endedCount_, 1);
    EXPECT_TRUE(client().ended());
    EXPECT_EQ(client().received(), "HEAD\r\n\r\nevent: session\ndata: {}\n\n");
}

TEST_F(PanelListener, EndWaitsForNobody) {
    stall();
    listener_->send("session", "{}");
    listener_->end();
    EXPECT_EQ(endedCount_, 1);
    EXPECT_FALSE(ends_.connection->isOpen());
    EXPECT_THAT(client().received(), Not(HasSubstr("event: session")));
}

TEST_F(PanelListener, DestructionClosesTheConnection) {
    listener_.reset();
    EXPECT_TRUE(client().ended());
    EXPECT_EQ(endedCount_, 0);
}

// ---- All listeners -------------------------------------------------------------------------------------------

class PanelStreams : public testing::Test {
protected:
    ClientEnd& add(Role role, const std::string& session = "") {
        ends_.push_back(makeStreamEnds(serverLimits_));
        streams_->add(std::make_shared<EventListener>(
            ends_.back().connection, ListenerInfo{role, "", session}, streams_->limits(), "HEAD ",
            [this](const EventListener* who) { streams_->remove(who); }));
        return *ends_.back().client;
    }
    static bool gets(ClientEnd& client, const std::string& text) {
        return runUntil([&] { return client.received() == text; });
    }

    ServerLimits serverLimits_;
    std::vector<StreamEnds> ends_;
    std::unique_ptr<EventStreams> streams_ = std::make_unique<EventStreams>();
};

TEST_F(PanelStreams, EventsGoToListenersWithTheirRole) {
    ClientEnd& viewer = add(Role::Viewer);
    ClientEnd& admin = add(Role::Admin);
    streams_->publish("status", "1");
    streams_->publish("journal", "2", Role::Operator);
    EXPECT_TRUE(gets(admin, "HEAD event: status\ndata: 1\n\nevent: journal\ndata: 2\n\n"));
    EXPECT_TRUE(gets(viewer, "HEAD event: status\ndata: 1\n\n"));
}

TEST_F(PanelStreams, NewListenerGetsTheFirstEvents) {
    streams_->setFirst([](const ListenerInfo& info) {
        return std::vector<Event>{{"session", info.role == Role::Admin ? "1" : "2"}, {"status", "3"}};
    });
    EXPECT_TRUE(gets(add(Role::Admin), "HEAD event: session\ndata: 1\n\nevent: status\ndata: 3\n\n"));
}

TEST_F(PanelStreams, CountIsToldWhenItChanges) {
    std::vector<std::size_t> counts;
    streams_->onCount([&counts](std::size_t count) { counts.push_back(count); });
    add(Role::Viewer);
    ClientEnd& closing = add(Role::Viewer);
    closing.close();
    EXPECT_TRUE(runUntil([this] { return streams_->count() == 1; }));
    streams_->remove(nullptr);
    EXPECT_EQ(counts, (std::vector<std::size_t>{1, 2, 1}));
}

TEST_F(PanelStreams, EndOfASessionEndsItsListenersOnly) {
    ClientEnd& mine = add(Role::Viewer, "mine");
    ClientEnd& other = add(Role::Viewer, "other");
    ClientEnd& token = add(Role::Viewer);
    streams_->endSession("");
    EXPECT_EQ(streams_->count(), 3U) << "a token has no session";
    streams_->endSession("mine");
    EXPECT_EQ(streams_->count(), 2U);
    EXPECT_TRUE(mine.ended());
    EXPECT_THAT(mine.received(),
                EndsWith("event: session\ndata: {\"user\":\"\",\"role\":\"none\",\"expires\":null}\n\n"));
    EXPECT_FALSE(other.ended() || token.ended());
    streams_->endAll();
    EXPECT_EQ(streams_->count(), 0U);
    EXPECT_TRUE(other.ended() && token.ended());
}

TEST_F(PanelStreams, BeatsShowThatTheConnectionLives) {
    StreamLimits limits;
    limits.beatEvery = 1;
    streams_ = std::make_unique<EventStreams>(limits);
    EXPECT_TRUE(gets(add(Role::Viewer), "HEAD event: beat\ndata: {}\n\n"));
}

} // namespace
} // namespace panel
