#include "appliance/panel/access/one_time_link.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/running_panel.h"

#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <vector>

using testing::StartsWith;

namespace panel {
namespace {

class PanelLink : public OperatingTest {
protected:
    void start() {
        panel_ = std::make_unique<RunningPanel>();
        panel_->tellAddress("127.0.0.1", 8088, false);
    }
    static std::string secretOf(const std::string& link) { return link.substr(link.rfind('/') + 1); }

    // Makes all links that many minutes older.
    static void age(int minutes) {
        for (const auto& entry : std::filesystem::directory_iterator(linksFolder()))
            std::filesystem::last_write_time(entry, entry.last_write_time() - std::chrono::minutes(minutes));
    }
    static auto linkCount() {
        const auto entries = std::filesystem::directory_iterator(linksFolder());
        return std::distance(begin(entries), end(entries));
    }

    std::unique_ptr<RunningPanel> panel_;
};

TEST_F(PanelLink, IsGoodOnce) {
    start();
    const std::string link = makeOneTimeLink();
    EXPECT_THAT(link, StartsWith("http://127.0.0.1:8088/open/"));
    EXPECT_TRUE(useOneTimeLink(secretOf(link)));
    EXPECT_FALSE(useOneTimeLink(secretOf(link)));
    EXPECT_FALSE(useOneTimeLink(""));
    EXPECT_FALSE(useOneTimeLink("../" + std::string(61, 'a')));
}

TEST_F(PanelLink, OneOfManyUsesAtOnceIsGood) {
    start();
    const std::string secret = secretOf(makeOneTimeLink());
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 16; ++number)
        threads.emplace_back([&] { good += useOneTimeLink(secret) ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 1);
}

TEST_F(PanelLink, EndsAfterItsTime) {
    start();
    const std::string young = makeOneTimeLink();
    age(linkMinutes - 1);
    EXPECT_TRUE(useOneTimeLink(secretOf(young)));
    const std::string old = makeOneTimeLink();
    age(linkMinutes + 1);
    EXPECT_FALSE(useOneTimeLink(secretOf(old)));
    EXPECT_EQ(linkCount(), 0);
}

TEST_F(PanelLink, FromTheFutureIsNotGood) {
    start();
    const std::string link = makeOneTimeLink();
    age(-60);
    EXPECT_FALSE(useOneTimeLink(secretOf(link)));
}

TEST_F(PanelLink, OldLinksAreRemovedWhenThePanelStarts) {
    start();
    makeOneTimeLink();
    age(linkMinutes + 1);
    makeOneTimeLink();
    panel_.reset();
    start();
    EXPECT_EQ(linkCount(), 1);
}

TEST_F(PanelLink, NeedsARunningPanel) {
    EXPECT_THROW(makeOneTimeLink(), Refused);
    start();
    makeOneTimeLink();
    panel_.reset();
    EXPECT_THROW(makeOneTimeLink(), Refused);
}

TEST_F(PanelLink, PanelRunsOnce) {
    start();
    EXPECT_THROW(RunningPanel(), Refused);
}

TEST_F(PanelLink, AddressIsOneForABrowserOfThisMachine) {
    EXPECT_EQ(RunningPanel::urlOf("0.0.0.0", 80, false), "http://127.0.0.1:80");
    EXPECT_EQ(RunningPanel::urlOf("::", 80, true), "https://[::1]:80");
    EXPECT_EQ(RunningPanel::urlOf("192.0.2.7", 443, true), "https://192.0.2.7:443");
}

} // namespace
} // namespace panel
