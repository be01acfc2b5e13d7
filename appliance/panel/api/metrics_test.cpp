#include "appliance/panel/api/metrics.h"

#include "appliance/panel/api/machine_figures.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace panel {
namespace {

using testing::HasSubstr;
using testing::Not;

class MetricsTest : public testing::Test {
protected:
    MetricsTest() {
        setenv("APPLIANCE_ROOT", "/nonexistent", 1);
        status.supervisorPid = getpid();
        status.mode = "auto";
        status.currentSource = 1;
        add("Gate", "0");
        add("Y\"a\\r\nd \xff", "32");
    }

    void add(const std::string& name, const std::string& error) {
        SourceReport source;
        source.index = static_cast<int>(sources.size());
        source.name = name;
        source.status = {{"ErrorCode", error}, {"VideoSourceType", "mjpeg"}};
        sources.push_back(source);
    }
    std::string text() { return metrics.text({status, sources, "box", 3, 77, 1.5}); }

    DecoderStatus status;
    std::vector<SourceReport> sources;
    Metrics metrics;
};

TEST_F(MetricsTest, TellsWhatIs) {
    const std::string out = text();
    EXPECT_THAT(out, HasSubstr("skelmor_up 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_up{source=\"Gate\"} 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_up{source=\"Y\\\"a\\\\r d ?\"} 0\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_shown{source=\"Gate\"} 0\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_panel_viewers 3\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_panel_pictures_total 77\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_stalls_total{source=\"Gate\"} 0\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_supervisor_resident_memory_bytes "));
}

TEST_F(MetricsTest, CountsWhatHappens) {
    metrics.switched({SwitchEvent::Kind::Gap, 0, 0.03}, "Gate");
    metrics.switched({SwitchEvent::Kind::Gap, 0, 99}, "Gate");
    metrics.switched({SwitchEvent::Kind::Answered, 0, 0.3}, "Gate");
    metrics.switched({SwitchEvent::Kind::Restart, 0, 0}, "Gate");
    metrics.switched({SwitchEvent::Kind::Start, 0, 0}, "");
    metrics.error("32", "Gate");
    metrics.request("GET", "/api/v1/status", 200);
    const std::string out = text();
    EXPECT_THAT(out, HasSubstr("skelmor_source_gap_seconds_bucket{source=\"Gate\",le=\"0.04\"} 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_gap_seconds_count{source=\"Gate\"} 2\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_answer_seconds_count{source=\"Gate\"} 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_player_restarts_total{source=\"Gate\"} 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_source_errors_total{code=\"32\",source=\"Gate\"} 1\n"));
    EXPECT_THAT(out, HasSubstr("skelmor_panel_requests_total{"));
}

TEST_F(MetricsTest, ForgetsSourcesThatHaveGone) {
    metrics.error("32", "Gate");
    sources.erase(sources.begin());
    EXPECT_THAT(text(), Not(HasSubstr("Gate")));
}

TEST_F(MetricsTest, ANameThatComesTwiceIsToldOnce) {
    add("Gate", "32");
    const std::string out = text();
    const std::string line = "skelmor_source_up{source=\"Gate\"}";
    EXPECT_EQ(out.find(line, out.find(line) + 1), std::string::npos);
}

TEST_F(MetricsTest, AnotherProgramReadsThem) {
    metrics.error("32", "Y\"a\\r\nd \xff");
    char path[] = "/tmp/panel-metrics-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    close(file);
    std::ofstream(path) << text();
    const std::string command =
        std::string("/usr/bin/python3 ") + HOUSE_ROOT + "/tests/panel/read_metrics.py " + path;
    const int result = std::system(command.c_str()); // NOLINT(cert-env33-c): a fixed command
    unlink(path);
    if (WIFEXITED(result) && WEXITSTATUS(result) == 77)
        GTEST_SKIP() << "python3-prometheus-client is not installed";
    EXPECT_EQ(result, 0);
}

TEST(MachineFigures, KnowThisProcess) {
    const auto own = processFigures(getpid());
    ASSERT_TRUE(own);
    EXPECT_GT(own->residentBytes, 100'000);
    ASSERT_TRUE(own->privateBytes);
    EXPECT_LE(*own->privateBytes, own->residentBytes * 2);
    EXPECT_FALSE(processFigures(-1));
    EXPECT_FALSE(processFigures(0));
}

} // namespace
} // namespace panel
