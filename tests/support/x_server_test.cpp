#include "tests/support/x_server.h"

#include <gtest/gtest.h>

namespace {

using x_server::XServer;

class XServerTest : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = XServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
    }
};

TEST_F(XServerTest, HasABlackScreenOfTheAskedSize) {
    XServer server(640, 480);
    const x_server::Image screen = server.screen();
    EXPECT_EQ(screen.width, 640);
    EXPECT_EQ(screen.height, 480);
    EXPECT_TRUE(screen.allBlack());
    EXPECT_TRUE(server.windows().empty());
}

TEST_F(XServerTest, ChangesItsSize) {
    XServer server(640, 480);
    ASSERT_TRUE(server.resize(320, 240));
    EXPECT_EQ(server.screen().width, 320);
    ASSERT_TRUE(server.resize(640, 480));
    EXPECT_EQ(server.screen().height, 480);
}

TEST_F(XServerTest, ComesBackWithTheSameNumber) {
    XServer server(320, 240);
    const std::string display = server.display();
    server.kill();
    EXPECT_THROW(server.screen(), std::runtime_error);
    server.start();
    EXPECT_EQ(server.display(), display);
    EXPECT_EQ(server.screen().width, 320);
}

TEST_F(XServerTest, FallsAsleepUnlessSomebodyKeepsItAwake) {
    XServer server(320, 240);
    EXPECT_TRUE(server.fallsAsleep());
}

} // namespace
