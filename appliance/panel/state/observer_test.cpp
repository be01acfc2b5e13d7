#include "appliance/panel/state/observer.h"

#include "appliance/operating/operating_fixture.h"

#include <libcommon/display.h>
#include <libcommon/events.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

#include <glib.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// This process is the supervisor of a temporary appliance.
class ObserverTest : public OperatingTest {
protected:
    ObserverTest() {
        initEventQueue();
        configure("[Decoder]\nSequenceMode = auto\nConnected = yes\n[Encoder.Gate]\nAddress = 127.0.0.1\n"
                  "Password = s3cret\nAutoEnabled = yes\nDisplayTime = 9\n");
    }
    ~ObserverTest() override { removeEventQueue(); }

    ObserverNews news() {
        return {.status = [this](const std::string& json) { statuses.push_back(json); },
                .sources = [this](const std::string& json) { lists.push_back(json); },
                .change = [this](const std::string& json) { changes.push_back(json); },
                .switched = [](const SwitchEvent&, const std::string&) {},
                .error = [this](const std::string& code,
                                const std::string& name) { errors.push_back(name + code); },
                .configured = [] {},
                .sourceChanged = [] {}};
    }
    static std::optional<StillInfo> noStill(const std::string& /*name*/) { return std::nullopt; }

    // Runs the main loop until the condition holds, at most ten seconds.
    template<class Condition>
    static bool await(Condition condition) {
        const gint64 limit = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
        while (!condition() && g_get_monotonic_time() < limit)
            g_main_context_iteration(nullptr, TRUE);
        return condition();
    }

    std::vector<std::string> statuses;
    std::vector<std::string> lists;
    std::vector<std::string> changes;
    std::vector<std::string> errors;
};

TEST_F(ObserverTest, TellsEverythingAtFirst) {
    Observer observer(news(), noStill);
    ASSERT_EQ(statuses.size(), 1U);
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_THAT(changes, IsEmpty());
    EXPECT_EQ(nlohmann::json::parse(lists[0])["sources"][0]["name"], "Gate");
    EXPECT_EQ(lists[0].find("s3cret"), std::string::npos);
}

TEST_F(ObserverTest, TellsAChangeOfTheTextsOnce) {
    Observer observer(news(), noStill);
    osdPrintf(0, 0, "Hello");
    EXPECT_TRUE(await([&] { return statuses.size() == 2; }));
    EXPECT_THAT(statuses.back(), HasSubstr("Hello"));
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(nlohmann::json::parse(changes[0])["what"], "text");
    EXPECT_EQ(lists.size(), 1U) << "the sources are as before";
}

TEST_F(ObserverTest, TellsAnErrorOfASource) {
    Observer observer(news(), noStill);
    status(0, "ErrorCode", "32");
    EXPECT_TRUE(await([&] { return !errors.empty(); }));
    EXPECT_EQ(errors[0], "Gate32");
    EXPECT_EQ(nlohmann::json::parse(lists.back())["sources"][0]["error"]["code"], "32");
}

TEST_F(ObserverTest, NoticesATextWhoseTimeIsOver) {
    Observer observer(news(), noStill);
    osdPrintf(0, 1, "Hello");
    EXPECT_TRUE(await([&] { return changes.size() == 2; }));
    EXPECT_EQ(nlohmann::json::parse(changes[1])["value"]["text"], "");
}

TEST_F(ObserverTest, NoticesThatTheDecoderHasGone) {
    Observer observer(news(), noStill);
    removeEventQueue();
    EXPECT_TRUE(await([&] { return observer.status().supervisorPid < 0; }));
    EXPECT_EQ(nlohmann::json::parse(statuses.back())["activity"], "stopped");
}

// A main loop without anything to do wakes only for the tick.
TEST_F(ObserverTest, IsQuietAtRest) {
    Observer observer(news(), noStill);
    const gint64 end = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    int wakeUps = 0;
    const guint limit = g_timeout_add(
        5000, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (g_get_monotonic_time() < end) {
        g_main_context_iteration(nullptr, TRUE);
        ++wakeUps;
    }
    g_source_remove(limit);
    EXPECT_LE(wakeUps, 6);
    EXPECT_EQ(statuses.size(), 1U);
}

} // namespace
} // namespace panel
