#include "sources/source_list.h"

#include "process/process_state.h"
#include "tests/fakes/fake_libcommon.h"

#include <gtest/gtest.h>

namespace {

using Indices = std::vector<int>;

struct SourceListTest : testing::Test {
    SourceListTest() {
        fake::reset();
        process.mode = MODE_AUTO;
        process.verbosity = 0;
        fake::setParam(0, "Decoder.SequenceMode", "auto");
    }
};

SourceParams source(const char* address, const char* automatic, const char* manual) {
    return {{"Address", address}, {"AutoEnabled", automatic}, {"ManualEnabled", manual}};
}

} // namespace

TEST_F(SourceListTest, AutoModeTakesTheSourcesEnabledForTheSequence) {
    fake::sources = {source("a", "yes", "no"), source("b", "no", "yes"), source("c", "yes", "yes")};
    EXPECT_EQ(buildSourceList().enabled, (Indices{0, 2}));
    EXPECT_EQ(getMode(), MODE_AUTO);
}

TEST_F(SourceListTest, ManualModeTakesTheSourcesEnabledForSelection) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    fake::sources = {source("a", "yes", "no"), source("b", "no", "yes"), source("c", "yes", "yes")};
    EXPECT_EQ(buildSourceList().enabled, (Indices{1, 2}));
    EXPECT_EQ(getMode(), MODE_MANUAL);
}

TEST_F(SourceListTest, TheModeChangeIsLoggedAsEveryModeChange) {
    process.verbosity = 1;
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    buildSourceList();
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{7, "\033[1;35mMode transition: 0 -> 1\033[0m"},
                                                     {7, "Found 0 sources"}}));
}

TEST_F(SourceListTest, AModeInAnotherLetterCaseIsIllegalAndThePreviousOneBuildsTheList) {
    process.mode = MODE_MANUAL;
    fake::setParam(0, "Decoder.SequenceMode", "Auto");
    fake::sources = {source("a", "yes", "no"), source("b", "no", "yes")};
    EXPECT_EQ(buildSourceList().enabled, (Indices{1}));
    EXPECT_EQ(getMode(), MODE_MANUAL);
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{2, "Illegal mode 'Auto' in Decoder.SequenceMode!"},
                                                     {7, "Found 2 sources"}}));
}

TEST_F(SourceListTest, AMissingModeIsIllegalToo) {
    fake::setParam(0, "Decoder.SequenceMode", "");
    fake::sources = {source("a", "yes", "no")};
    EXPECT_EQ(buildSourceList().enabled, (Indices{0}));
    EXPECT_TRUE(fake::logged(2, "Illegal mode '' in Decoder.SequenceMode!"));
}

TEST_F(SourceListTest, YesInCapitalLettersEnablesNothing) {
    fake::sources = {source("a", "YES", "Yes"), source("b", "Yes", "YES")};
    EXPECT_TRUE(buildSourceList().enabled.empty());
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    EXPECT_TRUE(buildSourceList().enabled.empty());
}

TEST_F(SourceListTest, TheKeyIsFoundInAnyLetterCase) {
    fake::sources = {{{"ADDRESS", "a"}, {"autoenabled", "yes"}}};
    EXPECT_EQ(buildSourceList().enabled, (Indices{0}));
}

TEST_F(SourceListTest, ASourceWithoutAddressIsNeverEnabled) {
    fake::sources = {source("", "yes", "yes"), {{"AutoEnabled", "yes"}, {"ManualEnabled", "yes"}}};
    EXPECT_TRUE(buildSourceList().enabled.empty());
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    EXPECT_TRUE(buildSourceList().enabled.empty());
}

TEST_F(SourceListTest, NoSourcesGiveAnEmptyListAndTheCount) {
    const SourceList list = buildSourceList();
    EXPECT_TRUE(list.configured.empty());
    EXPECT_TRUE(list.enabled.empty());
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{7, "Found 0 sources"}}));
}

TEST_F(SourceListTest, TheConfiguredListIsKeptAsTheFileHasIt) {
    fake::sources = {{{"Address", "a"}}, {{"Name", "without address"}}};
    EXPECT_EQ(std::vector<SourceParams>(buildSourceList().configured), fake::sources);
}

TEST_F(SourceListTest, TheDetectionTimeoutIsKeptInMicroseconds) {
    fake::setParam(0, "Decoder.AutoDetectTimeout", "15");
    EXPECT_EQ(buildSourceList().autoDetectTimeout, 15000000);
    fake::setParam(0, "Decoder.AutoDetectTimeout", "2147483647");
    EXPECT_EQ(buildSourceList().autoDetectTimeout, 2147483647000000);
}

TEST_F(SourceListTest, ADetectionTimeoutWithoutDigitsIsZero) {
    EXPECT_EQ(buildSourceList().autoDetectTimeout, 0);
    fake::setParam(0, "Decoder.AutoDetectTimeout", "soon");
    EXPECT_EQ(buildSourceList().autoDetectTimeout, 0);
}
