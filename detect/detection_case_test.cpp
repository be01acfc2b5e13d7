// Every case in testdata, without a disturbance and with a disturbance at each exchange.
#include "detect/interruption.h"
#include "detect/trace.h"
#include "tests/fakes/scripted_encoder.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

using detect_test::Case;
using detect_test::CaseRun;
using detect_test::Disturbance;

namespace {

constexpr std::size_t clearedKeys = 12;

class Detection : public testing::TestWithParam<std::filesystem::path> {
protected:
    const Case case_ = detect_test::readCase(GetParam());
};

// The status values that a run wrote after it had cleared them, without the trace.
std::vector<std::string> published(const CaseRun& run) {
    const std::string prefix = "status(" + std::to_string(detect_test::statusId) + ") ";
    std::vector<std::string> values;
    for (std::size_t i = clearedKeys; i + 1 < run.calls.size(); ++i) {
        EXPECT_TRUE(run.calls[i].starts_with(prefix)) << run.calls[i];
        values.push_back(run.calls[i].substr(prefix.size()));
    }
    return values;
}

std::vector<std::string> traceLines() {
    std::vector<std::string> lines;
    std::istringstream text(fake::statusValues[{detect_test::statusId, detect::traceKey}]);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

void expectSameEntry(const SourceEntry& actual, const SourceEntry& expected) {
    EXPECT_EQ(actual.index, expected.index);
    EXPECT_EQ(actual.address, expected.address);
    EXPECT_EQ(actual.userName, expected.userName);
    EXPECT_EQ(actual.password, expected.password);
    EXPECT_EQ(actual.sourceNumber, expected.sourceNumber);
    EXPECT_EQ(actual.configuredType, expected.configuredType);
    EXPECT_EQ(actual.detectedOK, expected.detectedOK);
    EXPECT_EQ(actual.errorCode, expected.errorCode);
    EXPECT_EQ(actual.detectedType, expected.detectedType);
    EXPECT_EQ(actual.audioAvailable, expected.audioAvailable);
    EXPECT_EQ(actual.connectMode, expected.connectMode);
    EXPECT_EQ(actual.rtspHost, expected.rtspHost);
    EXPECT_EQ(actual.rtspPort, expected.rtspPort);
    EXPECT_EQ(actual.audioHost, expected.audioHost);
    EXPECT_EQ(actual.audioPort, expected.audioPort);
    EXPECT_EQ(actual.streamOptions, expected.streamOptions);
}

// SIGUSR1 after a detection: ignored, not blocked, not pending.
void expectSignalAtRest() {
    struct sigaction action {};
    sigaction(SIGUSR1, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_FALSE(sigismember(&mask, SIGUSR1));
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGUSR1));
}

void expectNoCredentialsInTrace(const Case& one) {
    const std::string& trace = fake::statusValues[{detect_test::statusId, detect::traceKey}];
    EXPECT_EQ(trace.find(one.entry.password), std::string::npos) << trace;
    const std::string both = one.entry.userName + ":" + one.entry.password;
    EXPECT_EQ(trace.find(base64encode(both.data(), both.size())), std::string::npos) << trace;
    EXPECT_LE(trace.size(), detect::traceLimit);
}

// Twelve values are cleared first, in this order; the trace is written last.
void expectFrame(const CaseRun& run) {
    const char* const keys[clearedKeys] = {
        "NumberOfVideoSources", "ErrorCode", "VideoSourceType", "ConnectMode", "Audio",      "AudioFormat",
        "APIVersion",           "Model",     "BitRate",         "FrameRate",   "Resolution", "ImageRotation"};
    ASSERT_GT(run.calls.size(), clearedKeys);
    for (std::size_t i = 0; i < clearedKeys; ++i)
        EXPECT_EQ(run.calls[i], "status(7) " + std::string(keys[i]) + "=");
    EXPECT_TRUE(run.calls.back().starts_with("status(7) DetectionTrace=detection of ")) << run.calls.back();
    EXPECT_TRUE(traceLines().back().starts_with("end ")) << traceLines().back();
}

void expectInterrupted(const CaseRun& run) {
    EXPECT_FALSE(run.returned);
    EXPECT_EQ(run.descriptorsLeaked, 0);
    EXPECT_TRUE(traceLines().back().ends_with(" interrupted")) << traceLines().back();
    expectSignalAtRest();
}

// The exchange's wait was interrupted.
void expectNoVerdict(const CaseRun& run) {
    expectInterrupted(run);
    EXPECT_EQ(run.entry.errorCode, 0) << "an interruption is no error";
    for (const std::string& value : published(run))
        EXPECT_TRUE(!value.starts_with("ErrorCode=") || value == "ErrorCode=0") << value;
    EXPECT_EQ(run.afterwards, 0U) << "nothing is asked afterwards";
    EXPECT_FALSE(fake::interrupted) << "the flag is used up";
}

// Whether the case itself has an interruption.
bool isInterruptedByItself(const Case& one) {
    return !one.returns && one.entry.configuredType >= 0 && one.entry.configuredType <= 7;
}

TEST_P(Detection, BehavesAsTheCaseSays) {
    const CaseRun run = detect_test::runCase(case_);
    EXPECT_EQ(run.exchanges, case_.exchanges.size()) << "every exchange of the case takes place";
    EXPECT_EQ(run.returned, case_.returns);
    expectFrame(run);
    EXPECT_EQ(published(run), case_.status);
    expectSameEntry(run.entry, case_.expected);
    EXPECT_EQ(fake::log, case_.log);
    if (case_.output) {
        EXPECT_EQ(run.output, *case_.output);
    }
    if (!case_.trace.empty()) {
        EXPECT_EQ(traceLines(), case_.trace);
    }
    EXPECT_EQ(run.descriptorsLeaked, 0);
    const bool overHttp = case_.expected.detectedType == TYPE_RTSP_HTTP;
    EXPECT_EQ(run.inputClosed, overHttp && case_.entry.configuredType == TYPE_AUTO);
    expectNoCredentialsInTrace(case_);
    expectSignalAtRest();
}

TEST_P(Detection, EndsWithoutAVerdictWhereverItIsInterrupted) {
    if (isInterruptedByItself(case_))
        return;
    for (std::size_t where = 0; where < case_.exchanges.size(); ++where) {
        SCOPED_TRACE("at exchange " + std::to_string(where) + ": " + case_.exchanges[where].request);
        expectNoVerdict(detect_test::runCase(case_, Disturbance::NetworkInterrupted, where));
        expectInterrupted(detect_test::runCase(case_, Disturbance::SignalPending, where));
    }
}

// The next sequence number after each of these cases.
TEST(DetectionSequence, NumbersContinueFromDetectionToDetection) {
    const std::filesystem::path folder = DETECTION_CASES;
    int expected = -1;
    for (const auto& [name, requests] :
         {std::pair("rtsp-multicast", 4), std::pair("type-6-with-credentials", 1),
          std::pair("rtsp-unicast-after-refused-multicast", 4),
          std::pair("rtsp-multicast-teardown-unsent", 6), std::pair("rtsp-multicast", 4)}) {
        const CaseRun run =
            detect_test::runCase(detect_test::readCase(folder / (std::string(name) + ".case")));
        if (expected != -1) {
            EXPECT_EQ(run.sequenceBegan, expected) << "before " << name;
        }
        expected = run.sequenceBegan + requests;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, Detection, testing::ValuesIn(detect_test::allCases(DETECTION_CASES)),
                         [](const auto& instance) {
                             std::string name = instance.param.stem().string();
                             std::replace_if(
                                 name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); },
                                 '_');
                             return name;
                         });

} // namespace
