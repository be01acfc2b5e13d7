#include "appliance/settings/value_check.h"

#include <gtest/gtest.h>

namespace {

std::string mistakeOf(const char* name, const char* value) {
    const KnownParameter* parameter = findParameter(name);
    if (parameter == nullptr) {
        return "unknown";
    }
    const std::optional<Mistake> mistake = valueMistake(*parameter, value);
    return mistake ? mistake->reason + "; " + mistake->remedy : "";
}

TEST(ValueCheck, YesAndNoAreExact) {
    EXPECT_EQ(mistakeOf("Decoder.AutoConnect", "yes"), "");
    EXPECT_EQ(mistakeOf("Decoder.AutoConnect", "no"), "");
    EXPECT_EQ(mistakeOf("Decoder.AutoConnect", "Yes"),
              "takes yes or no, not \"Yes\"; write \"yes\": values are in small letters");
    EXPECT_EQ(mistakeOf("Decoder.AutoConnect", "1"), "takes yes or no, not \"1\"; write one of them");
}

TEST(ValueCheck, ChoicesAreExactAndTheNearestIsProposed) {
    EXPECT_EQ(mistakeOf("Decoder.SequenceMode", "manual"), "");
    EXPECT_EQ(mistakeOf("Decoder.SequenceMode", "manuel"),
              "takes auto or manual, not \"manuel\"; write \"manual\"");
    EXPECT_EQ(mistakeOf("Encoder.Yard.VideoSourceType", "rtsp-http"), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.VideoSourceType", "h264"),
              "takes auto, mjpeg, mpeg2-unicast, mpeg2-multicast, rtsp-unicast, rtsp-multicast, rtsp-tcp or "
              "rtsp-http, not \"h264\"; write one of them");
}

TEST(ValueCheck, ScreenTakesWordsOrSizesOrSeconds) {
    for (const char* value : {"auto", "160x120", "1280x720", "3840x2160"}) {
        EXPECT_EQ(mistakeOf("Screen.Size", value), "") << value;
    }
    for (const char* value :
         {"Auto", "1281x720", "158x120", "3842x2160", "1280", "1280x", "x720", "1280x720x1", "-2x2"}) {
        EXPECT_NE(mistakeOf("Screen.Size", value), "") << value;
    }
    EXPECT_EQ(
        mistakeOf("Screen.Size", "1280*720"),
        "takes auto or a size, even numbers from 160x120 to 3840x2160, not \"1280*720\"; write one of them");
    for (const char* value : {"no", "always", "1", "3600"}) {
        EXPECT_EQ(mistakeOf("Screen.ShowName", value), "") << value;
    }
    for (const char* value : {"0", "3601", "yes", "5 s"}) {
        EXPECT_NE(mistakeOf("Screen.ShowName", value), "") << value;
    }
}

TEST(ValueCheck, NumbersAreWholeAndWithinTheirRange) {
    EXPECT_EQ(mistakeOf("Decoder.AutoDetectTimeout", "0"), "");
    EXPECT_EQ(mistakeOf("Decoder.AutoDetectTimeout", "600"), "");
    for (const char* value : {"601", "-1", "10s", "99999999999999999999999"}) {
        EXPECT_EQ(mistakeOf("Decoder.AutoDetectTimeout", value),
                  "takes a number from 0 to 600, not \"" + std::string(value) + "\"; write digits only")
            << value;
    }
}

TEST(ValueCheck, CommentBehindAValueIsNamed) {
    EXPECT_EQ(
        mistakeOf("Decoder.SequenceMode", "manual # not a comment"),
        "takes auto or manual, not \"manual # not a comment\"; give the comment a line of its own: behind a "
        "value it is part of the value");
    EXPECT_EQ(mistakeOf("Decoder.AutoDetectTimeout", "10 ; seconds"),
              "takes a number from 0 to 600, not \"10 ; seconds\"; give the comment a line of its own: "
              "behind a value "
              "it is part of the value");
    EXPECT_EQ(mistakeOf("Encoder.Yard.Password", "a # b"), "") << "a password may have any character";
}

TEST(ValueCheck, TextsHaveNoControlCharacters) {
    EXPECT_EQ(mistakeOf("Encoder.Yard.Name", "Hof \xc3\xbc"), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.Name", "a\nb"),
              "takes a text without control characters, not \"a b\"; remove them");
}

TEST(ValueCheck, DefaultIsInSmallLetters) {
    EXPECT_EQ(mistakeOf("Encoder.Yard.Resolution", "default"), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.Resolution", "640x480"), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.Resolution", "Default"),
              "takes \"default\" in small letters, not \"Default\"; write \"default\"");
}

TEST(ValueCheck, AddressesAreHostAndPort) {
    EXPECT_EQ(mistakeOf("Encoder.Yard.Address", "camera:8080"), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.Address", "http://camera:8080/"),
              "\"http://camera:8080/\" has a scheme; write \"camera:8080\"; ");
}

TEST(ValueCheck, EmptyClears) {
    EXPECT_EQ(mistakeOf("Decoder.AutoConnect", ""), "");
    EXPECT_EQ(mistakeOf("Encoder.Yard.DisplayTime", ""), "");
}

} // namespace
