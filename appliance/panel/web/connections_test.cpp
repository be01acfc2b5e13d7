#include "appliance/panel/web/connections.h"

#include "appliance/panel/web/stream_ends.h"

#include <vector>

namespace panel {
namespace {

class PanelConnections : public testing::Test {
protected:
    PanelConnections() {
        limits_.connections = 4;
        limits_.strangers = 3;
        limits_.strangersOfAddress = 2;
    }
    std::shared_ptr<Connection> add(const std::string& address) {
        EXPECT_TRUE(all_->makeRoom(address));
        ends_.push_back(makeStreamEnds(limits_, address));
        all_->add(ends_.back().connection);
        return ends_.back().connection;
    }

    ServerLimits limits_;
    std::vector<StreamEnds> ends_;
    std::unique_ptr<Connections> all_;

    void SetUp() override { all_ = std::make_unique<Connections>(limits_); }
};

TEST_F(PanelConnections, OldestStrangerOfAnAddressMakesRoomForTheNext) {
    const auto first = add("192.0.2.1");
    const auto next = add("192.0.2.1");
    const auto third = add("192.0.2.1");
    EXPECT_FALSE(first->isOpen());
    EXPECT_TRUE(next->isOpen() && third->isOpen());
}

TEST_F(PanelConnections, OldestStrangerOfAllMakesRoomForTheNext) {
    const auto first = add("192.0.2.1");
    add("192.0.2.2");
    add("192.0.2.3");
    const auto fourth = add("192.0.2.4");
    EXPECT_FALSE(first->isOpen());
    EXPECT_TRUE(fourth->isOpen());
}

TEST_F(PanelConnections, ClientsWithALogInAreNeverCut) {
    std::vector<std::shared_ptr<Connection>> known;
    for (int number = 0; number < 3; ++number) {
        known.push_back(add("192.0.2.1"));
        known.back()->setKnown();
    }
    const auto stranger = add("192.0.2.1");
    known.push_back(add("192.0.2.1"));
    known.back()->setKnown();
    EXPECT_FALSE(stranger->isOpen()) << "there are four connections at most";
    EXPECT_FALSE(all_->makeRoom("192.0.2.1"));
    for (const auto& connection : known)
        EXPECT_TRUE(connection->isOpen());
}

TEST_F(PanelConnections, ClosedOnesDoNotCount) {
    add("192.0.2.1")->cut();
    const auto next = add("192.0.2.1");
    add("192.0.2.1");
    EXPECT_TRUE(next->isOpen());
}

TEST_F(PanelConnections, TimesAreLookedAtWhileThereAreConnections) {
    limits_.headSeconds = 0;
    all_ = std::make_unique<Connections>(limits_);
    const auto first = add("192.0.2.1");
    EXPECT_TRUE(runUntil([&first] { return !first->isOpen(); }));
    const auto later = add("192.0.2.1"); // the clock begins anew
    EXPECT_TRUE(runUntil([&later] { return !later->isOpen(); }));
}

TEST_F(PanelConnections, AllAreCutAtTheEnd) {
    const auto open = add("192.0.2.1");
    const auto draining = add("192.0.2.2");
    draining->closedByLibrary();
    EXPECT_TRUE(draining->isOpen());
    all_.reset();
    EXPECT_FALSE(open->isOpen());
    EXPECT_FALSE(draining->isOpen());
}

} // namespace
} // namespace panel
