#include "player/ptz.h"

#include "tests/fakes/fake_libcommon.h"
#include "tests/fakes/fake_sources_cache.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int refused = -500;

class PtzPreset : public testing::Test {
protected:
    PtzPreset() {
        fake::reset();
        fake::resetSourcesCache();
        fake::sources = {{},
                         {{"Address", "10.0.0.9:8080"}, {"UserName", "operator"}, {"Password", "secret"}}};
        fake::sources[1]["PTZ"] = "door";
        fake::onRequest = [](const fake::Request&) { return fake::Reply{.body = {}, .result = 0}; };
    }

    static void reply(const char* function, int result, ConnectMode mode = CONNECT_HTTP) {
        const auto before = fake::onRequest;
        fake::onRequest = [=](const fake::Request& request) {
            return request.function == function ? fake::Reply{.body = {}, .result = result, .mode = mode}
                                                : before(request);
        };
    }

    // Each request as "FUNCTION ADDRESS:PORT FLAG".
    static std::vector<std::string> requests() {
        std::vector<std::string> list;
        for (const fake::Request& one : fake::requests) {
            list.push_back(one.function + " " + one.address + " " + std::to_string(one.port) +
                           (one.flag ? " with credentials" : ""));
            EXPECT_EQ(one.path, "/vexo-cgi/com/ptz.cgi?gotoserverpresetname=door");
            EXPECT_EQ(one.user, "operator");
            EXPECT_EQ(one.password, "secret");
            EXPECT_FALSE(one.hasBuffer);
            EXPECT_EQ(one.size, 0);
            EXPECT_EQ(one.timeout, 10);
        }
        return list;
    }

    // Runs the goto with this mode. Returns the mode that the entry has afterwards.
    static int modeAfterGoto(int mode) {
        SourceEntry& entry = fake::addSource(1, "key");
        entry.connectMode = mode;
        gotoPtzPreset(1);
        return entry.connectMode;
    }
};

TEST_F(PtzPreset, SourceWithoutAPresetSendsNoRequest) {
    fake::addSource(0, "key");
    fake::addSource(1, "other");
    gotoPtzPreset(0);
    fake::sources[1]["PTZ"] = "";
    gotoPtzPreset(1);
    gotoPtzPreset(7);
    EXPECT_THAT(fake::requests, IsEmpty());
    EXPECT_THAT(fake::calls, IsEmpty()) << "the entry is not asked for either";
}

TEST_F(PtzPreset, SourceWithoutAnEntrySendsNoRequest) {
    gotoPtzPreset(1);
    EXPECT_THAT(fake::calls, ElementsAre("getSourceEntry(1)"));
    EXPECT_THAT(fake::requests, IsEmpty());
}

TEST_F(PtzPreset, UnknownModeIsLearnedFromTheAutomaticRequest) {
    reply("download", 0, CONNECT_HTTPS);
    EXPECT_EQ(modeAfterGoto(CONNECT_AUTO), CONNECT_HTTPS);
    EXPECT_THAT(requests(), ElementsAre("download 10.0.0.9:8080 0"));
}

TEST_F(PtzPreset, FailedAutomaticRequestLeavesTheModeUnknown) {
    for (const int result : {-401, -7, 5}) {
        reply("download", result, CONNECT_HTTPS);
        EXPECT_EQ(modeAfterGoto(CONNECT_AUTO), CONNECT_AUTO) << result;
    }
    EXPECT_EQ(fake::requests.size(), 3U) << "no second try";
}

TEST_F(PtzPreset, PlainHttpUsesTheAddressPort) {
    EXPECT_EQ(modeAfterGoto(CONNECT_HTTP), CONNECT_HTTP);
    EXPECT_THAT(requests(), ElementsAre("downloadHTTP 10.0.0.9 8080"));
}

TEST_F(PtzPreset, HttpWithCredentialsSetsTheFlag) {
    EXPECT_EQ(modeAfterGoto(CONNECT_HTTP_AUTH), CONNECT_HTTP_AUTH);
    EXPECT_THAT(requests(), ElementsAre("downloadHTTP 10.0.0.9 8080 with credentials"));
}

TEST_F(PtzPreset, DefaultPortsAreThoseOfTheScheme) {
    fake::sources[1]["Address"] = "10.0.0.9";
    modeAfterGoto(CONNECT_HTTP);
    modeAfterGoto(CONNECT_HTTP_AUTH);
    modeAfterGoto(CONNECT_HTTPS);
    EXPECT_THAT(requests(),
                ElementsAre("downloadHTTP 10.0.0.9 80", "downloadHTTP 10.0.0.9 80 with credentials",
                            "downloadHTTPS 10.0.0.9 443 with credentials"));
}

TEST_F(PtzPreset, RefusedRequestFallsBackOnceAndRelearnsTheMode) {
    const struct {
        int mode;
        const char* function;
        const char* request;
    } cases[] = {{CONNECT_HTTP, "downloadHTTP", "downloadHTTP 10.0.0.9 8080"},
                 {CONNECT_HTTP_AUTH, "downloadHTTP", "downloadHTTP 10.0.0.9 8080 with credentials"},
                 {CONNECT_HTTPS, "downloadHTTPS", "downloadHTTPS 10.0.0.9 8080 with credentials"}};
    for (const auto& one : cases) {
        fake::requests.clear();
        reply(one.function, refused);
        reply("download", 0, CONNECT_HTTP_AUTH);
        EXPECT_EQ(modeAfterGoto(one.mode), CONNECT_HTTP_AUTH);
        EXPECT_THAT(requests(), ElementsAre(one.request, "download 10.0.0.9:8080 0"));

        fake::requests.clear();
        reply("download", refused, CONNECT_HTTP_AUTH);
        EXPECT_EQ(modeAfterGoto(one.mode), CONNECT_AUTO);
        EXPECT_EQ(fake::requests.size(), 2U);
    }
}

TEST_F(PtzPreset, PresetNameIsSentAsItIsConfigured) {
    fake::sources[1]["PTZ"] = "back door&x=1%20";
    modeAfterGoto(CONNECT_HTTP);
    ASSERT_EQ(fake::requests.size(), 1U);
    EXPECT_EQ(fake::requests[0].path, "/vexo-cgi/com/ptz.cgi?gotoserverpresetname=back door&x=1%20");
}

TEST_F(PtzPreset, NothingIsLoggedWhateverHappens) {
    reply("download", refused);
    reply("downloadHTTP", refused);
    modeAfterGoto(CONNECT_HTTP);
    EXPECT_THAT(fake::log, IsEmpty());
}

// Runs until the alarm ends it; a request would end it earlier with status 1.
void gotoWithModeUntilTheAlarm(int mode) {
    fake::onRequest = [](const fake::Request&) -> fake::Reply { _exit(1); };
    const itimerval timer{{0, 0}, {0, 50'000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    fake::addSource(1, "key").connectMode = mode;
    gotoPtzPreset(1);
}

TEST_F(PtzPreset, UnknownConnectModeIsTestedForeverWithoutARequest) {
    for (const int mode : {-1, 4, 5})
        EXPECT_EXIT(gotoWithModeUntilTheAlarm(mode), testing::KilledBySignal(SIGALRM), "") << mode;
}

TEST_F(PtzPreset, EndlessTestStillLetsAnInterruptIn) {
    const auto interruptedMeanwhile = [] {
        std::signal(SIGINT, [](int) { _exit(42); });
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        sigprocmask(SIG_BLOCK, &interrupt, nullptr);
        std::raise(SIGINT);
        gotoWithModeUntilTheAlarm(4);
    };
    EXPECT_EXIT(interruptedMeanwhile(), testing::ExitedWithCode(42), "");
}

} // namespace
