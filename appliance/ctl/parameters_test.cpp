#include "appliance/ctl/parameters.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

std::string refusalOf(const char* name, const char* value) {
    const KnownParameter* parameter = findParameter(name);
    return parameter == nullptr ? "unknown" : refusal(*parameter, value);
}

TEST(Parameters, NamesIgnoreCase) {
    ASSERT_NE(findParameter("decoder.sequencemode"), nullptr);
    EXPECT_EQ(findParameter("decoder.sequencemode")->name, "Decoder.SequenceMode");
}

TEST(Parameters, SourceNamesMayHaveBlanksAndDots) {
    ASSERT_NE(findParameter("Encoder.Front door.Address"), nullptr);
    ASSERT_NE(findParameter("Encoder.10.0.0.1.Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder.Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder..Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder.Front door.Adress"), nullptr);
}

TEST(Parameters, WhatTheDecoderTellsLiesInItsOwnFile) {
    EXPECT_EQ(parameterFile("Decoder.Info.CurrentSource"), 1);
    EXPECT_EQ(parameterFile("decoder.info.connected"), 1);
    EXPECT_EQ(parameterFile("Decoder.Connected"), 0);
    EXPECT_EQ(parameterFile("Decoder.Info."), 0);
    EXPECT_EQ(parameterFile("Encoder.Yard.Address"), 0);
}

TEST(Parameters, YesAndNoAreExact) {
    EXPECT_EQ(refusalOf("Decoder.AutoConnect", "yes"), "");
    EXPECT_EQ(refusalOf("Decoder.AutoConnect", "no"), "");
    EXPECT_EQ(refusalOf("Decoder.AutoConnect", "Yes"), "yes or no");
    EXPECT_EQ(refusalOf("Decoder.AutoConnect", "1"), "yes or no");
}

TEST(Parameters, ChoicesAreExactAndListed) {
    EXPECT_EQ(refusalOf("Decoder.SequenceMode", "manual"), "");
    EXPECT_EQ(refusalOf("Decoder.SequenceMode", "Manual"), "auto or manual");
    EXPECT_EQ(refusalOf("Encoder.Yard.VideoSourceType", "rtsp-http"), "");
    EXPECT_EQ(
        refusalOf("Encoder.Yard.VideoSourceType", "h264"),
        "auto, mjpeg, mpeg2-unicast, mpeg2-multicast, rtsp-unicast, rtsp-multicast, rtsp-tcp or rtsp-http");
}

TEST(Parameters, NumbersAreWholeAndWithinTheirRange) {
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "0"), "");
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "600"), "");
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "601"), "a number from 0 to 600");
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "-1"), "a number from 0 to 600");
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "10s"), "a number from 0 to 600");
    EXPECT_EQ(refusalOf("Decoder.AutoDetectTimeout", "99999999999999999999999"), "a number from 0 to 600");
}

TEST(Parameters, TextsHaveNoControlCharacters) {
    EXPECT_EQ(refusalOf("Encoder.Yard.Name", "Hof \xc3\xbc"), "");
    EXPECT_EQ(refusalOf("Encoder.Yard.Name", "a\nb"), "a text without control characters");
}

TEST(Parameters, EmptyClears) {
    EXPECT_EQ(refusalOf("Decoder.AutoConnect", ""), "");
    EXPECT_EQ(refusalOf("Encoder.Yard.DisplayTime", ""), "");
}

// The reference names every parameter that the command knows, in backticks.
TEST(Parameters, AreAllInTheReference) {
    std::ifstream file(HOUSE_ROOT "/docs/parameters.md");
    ASSERT_TRUE(file) << "docs/parameters.md is missing";
    std::stringstream text;
    text << file.rdbuf();
    for (const auto table : {decoderParameters(), sourceParameters(), infoParameters()}) {
        for (const KnownParameter& parameter : table) {
            EXPECT_THAT(text.str(), testing::HasSubstr("`" + std::string(parameter.name) + "`"));
        }
    }
}

} // namespace
