#include "sources/source_record.h"

#include "tests/fakes/fake_libcommon.h"

#include <gtest/gtest.h>

namespace {

struct SourceRecord : testing::Test {
    SourceRecord() { fake::reset(); }
};

} // namespace

TEST_F(SourceRecord, TheKeyIsAddressNumberAndTypeFromTheRawValues) {
    SourceParams params{{"VideoSourceType", "MJPEG"}, {"VideoSourceNumber", "02"}, {"Address", "Cam:8080"}};
    EXPECT_EQ(sourceKey(params), "Cam:8080#02#MJPEG");
}

TEST_F(SourceRecord, TheKeyFindsParametersInAnyLetterCase) {
    SourceParams params{{"VIDEOSOURCETYPE", "auto"}, {"videosourcenumber", "1"}, {"aDDRESS", "cam"}};
    EXPECT_EQ(sourceKey(params), "cam#1#auto");
}

TEST_F(SourceRecord, WithoutNumberAndTypeTheKeyIsTheAddressAndTwoSeparators) {
    SourceParams params{{"Address", "cam"}};
    EXPECT_EQ(sourceKey(params), "cam##");
    EXPECT_EQ(params, (SourceParams{{"Address", "cam"}, {"VideoSourceNumber", ""}, {"VideoSourceType", ""}}));
}

TEST_F(SourceRecord, AddressesThatDifferInLetterCaseHaveDifferentKeys) {
    SourceParams one{{"Address", "cam"}};
    SourceParams other{{"Address", "CAM"}};
    EXPECT_NE(sourceKey(one), sourceKey(other));
}

TEST_F(SourceRecord, TheRecordsComeInTheOrderOfTheParameterFile) {
    fake::sources = {{{"Address", "a"}}, {{"Address", "b"}}};
    const std::vector<SourceParams> sources = readSources();
    EXPECT_EQ(sources, fake::sources);
}

TEST_F(SourceRecord, TheListIsReadAgainEachTime) {
    fake::sources = {{{"Address", "a"}}};
    EXPECT_EQ(readSource(0), (SourceParams{{"Address", "a"}}));
    fake::sources = {{{"Address", "b"}}};
    EXPECT_EQ(readSource(0), (SourceParams{{"Address", "b"}}));
}

TEST_F(SourceRecord, AnIndexThatNamesNoSourceGivesAnEmptyRecord) {
    fake::sources = {{{"Address", "a"}}, {{"Address", "b"}}};
    EXPECT_EQ(readSource(1), (SourceParams{{"Address", "b"}}));
    EXPECT_TRUE(readSource(-1).empty());
    EXPECT_TRUE(readSource(2).empty());
    fake::sources.clear();
    EXPECT_TRUE(readSource(0).empty());
}
