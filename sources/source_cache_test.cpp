#include "sources/source_cache.h"

#include "tests/fakes/fake_detect.h"
#include "tests/fakes/fake_libcommon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>

namespace {

using Calls = std::vector<std::string>;

constexpr std::initializer_list<const char*> keys{
    "NumberOfVideoSources", "VideoSourceType", "ConnectMode", "Audio",     "AudioFormat",
    "APIVersion",           "Model",           "BitRate",     "FrameRate", "Resolution"};

// Sources 0 and 1 are the same input of the same encoder, source 2 another one.
struct SourceCacheTest : testing::Test {
    SourceCacheTest() {
        fake::reset();
        fake::resetDetect();
        flushSourceCache();
        fake::calls.clear();
        fake::sources = {{{"Address", "cam"}, {"VideoSourceNumber", "1"}, {"VideoSourceType", "mjpeg"}},
                         {{"Address", "cam"}, {"VideoSourceNumber", "1"}, {"VideoSourceType", "mjpeg"}},
                         {{"Address", "other"}}};
    }

    static void acceptWith(const char* model) {
        fake::onDetectSource = [model](SourceEntry& entry, int id) {
            for (const char* key : keys)
                status(id, key, model);
            entry.detectedOK = true;
            return true;
        };
    }

    static void failWith(int code) {
        fake::onDetectSource = [code](SourceEntry& entry, int id) {
            entry.errorCode = code;
            status(id, "ErrorCode", code);
            return true;
        };
    }
};

Calls cleared(int index) {
    Calls calls;
    for (const char* key : keys)
        calls.push_back("status(" + std::to_string(index) + ") " + key + "=");
    return calls;
}

Calls copied(int from, int to) {
    Calls calls;
    for (const char* key : keys)
        calls.push_back("copyStatus(" + std::to_string(from) + "," + std::to_string(to) + ") " + key);
    return calls;
}

} // namespace

TEST_F(SourceCacheTest, TheKeyOfASourceIsItsSourceKey) {
    EXPECT_EQ(getSourceKey(0), "cam#1#mjpeg");
    EXPECT_EQ(getSourceKey(2), "other##");
}

TEST_F(SourceCacheTest, AnIndexThatNamesNoSourceDoesNothing) {
    for (const int index : {-1, 3}) {
        EXPECT_EQ(getSourceKey(index), "");
        EXPECT_FALSE(isSourceDetected(index));
        EXPECT_EQ(getSourceEntry(index), nullptr);
    }
    EXPECT_TRUE(fake::calls.empty());
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(SourceCacheTest, InvalidatingAnIndexThatNamesNoSourceOnlyLogs) {
    invalidateSource(3);
    invalidateSource(-1);
    EXPECT_TRUE(fake::calls.empty());
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{7, "Invalidating source cache entry 3"},
                                                     {7, "Invalidating source cache entry -1"}}));
}

TEST_F(SourceCacheTest, AFirstRequestFillsTheEntryAndDetectsTheEncoder) {
    fake::sources[2] = {{"address", "other:81"},
                        {"UserName", "u"},
                        {"Password", "p"},
                        {"VideoSourceNumber", "2x"},
                        {"VideoSourceType", "MPEG2-Unicast"}};
    SourceEntry seen;
    fake::onDetectSource = [&](SourceEntry& entry, int) {
        seen = entry;
        entry.detectedOK = true;
        return true;
    };
    SourceEntry* entry = getSourceEntry(2);
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(entry->detectedOK);
    EXPECT_EQ(seen.index, 2);
    EXPECT_EQ(seen.address, "other:81");
    EXPECT_EQ(seen.userName, "u");
    EXPECT_EQ(seen.password, "p");
    EXPECT_EQ(seen.sourceNumber, 2);
    EXPECT_EQ(seen.configuredType, TYPE_MPEG2);
    EXPECT_FALSE(seen.detectedOK);
    EXPECT_EQ(seen.errorCode, 0);
    EXPECT_EQ(seen.recoveryStep, 0);
    EXPECT_EQ(seen.rtspHost + seen.audioHost + seen.streamOptions, "");
    EXPECT_EQ(fake::calls, (Calls{"detectSource(2)"}));
    EXPECT_TRUE(isSourceDetected(2));
}

TEST_F(SourceCacheTest, MissingParametersReadAsQuadViewAndAutomaticType) {
    SourceEntry* entry = getSourceEntry(2);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->sourceNumber, 0);
    EXPECT_EQ(entry->configuredType, TYPE_AUTO);
    EXPECT_EQ(entry->userName + entry->password, "");
}

TEST_F(SourceCacheTest, AnUnknownTypeReachesTheDetectionAsMinusOne) {
    fake::sources[2]["VideoSourceType"] = "betamax";
    EXPECT_EQ(getSourceEntry(2)->configuredType, -1);
}

TEST_F(SourceCacheTest, AHugeSourceNumberStaysAnInteger) {
    fake::sources[2]["VideoSourceNumber"] = "99999999999999999999";
    EXPECT_EQ(getSourceEntry(2)->sourceNumber, 2147483647);
}

TEST_F(SourceCacheTest, ADetectedSourceIsNotDetectedAgain) {
    SourceEntry* first = getSourceEntry(2);
    fake::calls.clear();
    EXPECT_EQ(getSourceEntry(2), first);
    EXPECT_THAT(fake::calls, testing::Not(testing::Contains("detectSource(2)")));
}

TEST_F(SourceCacheTest, ASourceOfTheSameKeySharesTheDetectionAndItsStatusValues) {
    acceptWith("Vexo 1");
    SourceEntry* first = getSourceEntry(0);
    fake::calls.clear();
    EXPECT_EQ(getSourceEntry(1), first);
    EXPECT_EQ(first->index, 0);
    Calls expected = copied(0, 1);
    expected.emplace_back("status(1) ErrorCode=0");
    EXPECT_EQ(fake::calls, expected);
    EXPECT_EQ(status(1, "Model"), "Vexo 1");
    EXPECT_EQ(status(1, "Resolution"), "Vexo 1");
}

TEST_F(SourceCacheTest, ADetectedEntryIsNotRefreshedFromTheParameters) {
    SourceEntry* entry = getSourceEntry(2);
    fake::sources[2]["UserName"] = "somebody else";
    EXPECT_EQ(getSourceEntry(2), entry);
    EXPECT_EQ(entry->userName, "");
}

TEST_F(SourceCacheTest, ADetectionThatEndedWithAnErrorKeepsTheEntryAndItsErrorCode) {
    failWith(20);
    SourceEntry* entry = getSourceEntry(0);
    ASSERT_NE(entry, nullptr);
    EXPECT_FALSE(entry->detectedOK);
    EXPECT_EQ(status(0, "ErrorCode"), "20");
    EXPECT_FALSE(isSourceDetected(0));
}

TEST_F(SourceCacheTest, AfterAFailureTheSecondSourceDetectsOnTheSameEntryWhichThenNamesIt) {
    failWith(20);
    SourceEntry* entry = getSourceEntry(0);
    entry->recoveryStep = 2;
    entry->rtspHost = "kept";
    fake::calls.clear();
    SourceEntry seen;
    fake::onDetectSource = [&](SourceEntry& filled, int) {
        seen = filled;
        filled.detectedOK = true;
        return true;
    };
    EXPECT_EQ(getSourceEntry(1), entry);
    EXPECT_EQ(fake::calls, (Calls{"detectSource(1)"}));
    EXPECT_EQ(seen.index, 1);
    EXPECT_EQ(seen.errorCode, 0);
    EXPECT_EQ(seen.recoveryStep, 0);
    EXPECT_EQ(seen.rtspHost, "kept");
    EXPECT_TRUE(isSourceDetected(0));
}

TEST_F(SourceCacheTest, AnInterruptedDetectionLeavesNothingBehind) {
    fake::onDetectSource = [](SourceEntry&, int id) {
        status(id, "Model", "half");
        return false;
    };
    EXPECT_EQ(getSourceEntry(0), nullptr);
    Calls expected{"detectSource(0)", "status(0) Model=half", "status(0) ErrorCode="};
    for (std::string& call : cleared(0))
        expected.push_back(call);
    EXPECT_EQ(fake::calls, expected);
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{7, "Invalidating source cache entry 0"}}));
    EXPECT_FALSE(isSourceDetected(0));
    EXPECT_EQ(status(0, "Model"), "");

    SourceEntry seen;
    fake::onDetectSource = [&](SourceEntry& entry, int) {
        seen = entry;
        return true;
    };
    getSourceEntry(1)->rtspHost = "kept only while the entry lives";
    EXPECT_EQ(seen.rtspHost, "");
}

TEST_F(SourceCacheTest, AnInterruptedDetectionLeavesNothingBehindWhenTheSourcesChangedMeanwhile) {
    fake::onDetectSource = [](SourceEntry& entry, int) {
        entry.rtspHost = "half";
        fake::sources.insert(fake::sources.begin(), SourceParams{{"Address", "new"}});
        return false;
    };
    EXPECT_EQ(getSourceEntry(0), nullptr);
    SourceEntry seen;
    fake::onDetectSource = [&](SourceEntry& entry, int) {
        seen = entry;
        return true;
    };
    ASSERT_EQ(getSourceKey(1), "cam#1#mjpeg") << "the source has another index now";
    getSourceEntry(1);
    EXPECT_EQ(seen.rtspHost, "") << "the half-detected entry was used again";
}

TEST_F(SourceCacheTest, AnInterruptedDetectionLeavesNothingBehindWhenItsSourceIsGone) {
    fake::onDetectSource = [](SourceEntry& entry, int) {
        entry.rtspHost = "half";
        fake::sources.clear();
        return false;
    };
    const std::vector<SourceParams> before = fake::sources;
    EXPECT_EQ(getSourceEntry(2), nullptr);
    fake::sources = before;
    SourceEntry seen;
    fake::onDetectSource = [&](SourceEntry& entry, int) {
        seen = entry;
        return true;
    };
    getSourceEntry(2);
    EXPECT_EQ(seen.rtspHost, "");
}

TEST_F(SourceCacheTest, InvalidatingOneOfTwoSharersForgetsTheEntryButNotTheOthersStatusValues) {
    acceptWith("Vexo 1");
    getSourceEntry(0);
    getSourceEntry(1);
    fake::calls.clear();
    invalidateSource(1);
    EXPECT_EQ(fake::calls, cleared(1));
    EXPECT_FALSE(isSourceDetected(0));
    EXPECT_FALSE(isSourceDetected(1));
    EXPECT_EQ(status(0, "Model"), "Vexo 1");
    EXPECT_EQ(status(1, "Model"), "");
}

TEST_F(SourceCacheTest, ImageRotationIsNeitherCopiedNorCleared) {
    acceptWith("Vexo 1");
    status(0, "ImageRotation", "90");
    status(1, "ImageRotation", "180");
    getSourceEntry(0);
    getSourceEntry(1);
    invalidateSource(0);
    EXPECT_EQ(status(0, "ImageRotation"), "90");
    EXPECT_EQ(status(1, "ImageRotation"), "180");
}

TEST_F(SourceCacheTest, AskingDoesNotEnterASource) {
    EXPECT_FALSE(isSourceDetected(0));
    EXPECT_EQ(getSourceKey(0), "cam#1#mjpeg");
    EXPECT_TRUE(fake::calls.empty());
    EXPECT_FALSE(isSourceDetected(0));
}

TEST_F(SourceCacheTest, FlushForgetsEverythingUnderTheParameterFilesLock) {
    getSourceEntry(0);
    getSourceEntry(2);
    fake::calls.clear();
    flushSourceCache();
    EXPECT_EQ(fake::calls, (Calls{"lockParamFile(0,1)", "syncEncoderInfo()", "unlockParamFile(0,1)"}));
    EXPECT_FALSE(isSourceDetected(0));
    EXPECT_FALSE(isSourceDetected(2));
    getSourceEntry(0);
    EXPECT_THAT(fake::calls, testing::Contains("detectSource(0)"));
}
