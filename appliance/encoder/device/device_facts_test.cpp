#include "appliance/encoder/device/device_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

Options device(int apiVersion, std::size_t inputs = 1, std::set<Kind> kinds = {Kind::Mjpeg}) {
    Options options;
    options.apiVersion = apiVersion;
    options.inputs.assign(inputs, "test");
    options.kinds = std::move(kinds);
    options.model = "A Model";
    options.rotation = 90;
    return options;
}

std::string viewed(const Options& options, const char* name) {
    const ParameterReply reply = Parameters(factsOf(options)).ask(ParameterCgi::View, name);
    EXPECT_EQ(reply.status, 200);
    return reply.text;
}

} // namespace

TEST(Parameters, RepliesBeginWithTheNameAsAsked) {
    const Options options = device(3, 2);
    EXPECT_EQ(viewed(options, "Properties.API.HTTP.Version"), "Properties.API.HTTP.Version=3\n");
    EXPECT_EQ(viewed(options, "Brand.ProdFullName"), "Brand.ProdFullName=A Model\n");
    EXPECT_EQ(viewed(options, "root.BRAND.PRODFULLNAME"), "root.BRAND.PRODFULLNAME=A Model\n");
    EXPECT_EQ(viewed(options, "root.Brand.ProdFullName"), "root.Brand.ProdFullName=A Model\n");
    EXPECT_EQ(viewed(options, "ImageSource.NbrOfSources"), "ImageSource.NbrOfSources=2\n");
    EXPECT_EQ(viewed(options, "Image.Rotation"), "Image.Rotation=90\n");
    for (const char* image :
         {"Image.I0.Appearance.Rotation", "Image.I1.Appearance.Rotation", "Image.I4.Appearance.Rotation"})
        EXPECT_EQ(viewed(options, image), std::string(image) + "=90\n");
    EXPECT_THAT(viewed(options, "Image.I2.Appearance.Rotation"), testing::StartsWith("#"));
}

TEST(Parameters, AllThreeCgisKnowTheParameters) {
    const Parameters parameters(factsOf(device(2)));
    for (const ParameterCgi cgi : {ParameterCgi::View, ParameterCgi::Admin, ParameterCgi::AdminGet}) {
        EXPECT_EQ(parameters.ask(cgi, "Image.Rotation").text, "Image.Rotation=90\n");
        EXPECT_THAT(parameters.ask(cgi, "No.Such").text, testing::StartsWith("#"));
        EXPECT_EQ(parameters.ask(cgi, "No.Such").status, 200);
    }
}

TEST(Parameters, AGroupListsItsParameters) {
    const Parameters parameters(factsOf(device(2)));
    EXPECT_EQ(parameters.ask(ParameterCgi::View, "Properties").text,
              "Properties.API.HTTP.Version=2\nProperties.Image.Format=jpeg,mjpeg\n");
    EXPECT_THAT(parameters.ask(ParameterCgi::View, "Prop").text, testing::StartsWith("#"));
    EXPECT_THAT(parameters.ask(ParameterCgi::View, "").text,
                testing::HasSubstr("ImageSource.NbrOfSources=1\n"));
}

TEST(Parameters, Mpeg4IsListedOnlyIfRtspIsOffered) {
    for (const Kind kind : {Kind::RtspUnicast, Kind::RtspMulticast, Kind::RtspTcp, Kind::RtspHttp})
        EXPECT_THAT(viewed(device(2, 1, {kind}), "Properties.Image.Format"), testing::HasSubstr("mpeg4"));
    for (const Kind kind : {Kind::Mjpeg, Kind::Mpeg2, Kind::Sdp})
        EXPECT_THAT(viewed(device(2, 1, {kind}), "Properties.Image.Format"),
                    testing::Not(testing::HasSubstr("mpeg4")));
}

TEST(Parameters, AnOldDeviceHasNoViewerCgiAndOldNames) {
    const Parameters parameters(factsOf(device(1)));
    EXPECT_EQ(parameters.ask(ParameterCgi::View, "Properties.API.HTTP.Version").status, 404);
    EXPECT_EQ(parameters.ask(ParameterCgi::View, "root.BRAND.PRODFULLNAME").status, 404);
    EXPECT_EQ(parameters.ask(ParameterCgi::AdminGet, "Brand.ProdFullName").status, 404);
    const ParameterReply reply = parameters.ask(ParameterCgi::AdminGet, "root.BRAND.PRODFULLNAME");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.text, "root.BRAND.PRODFULLNAME=A Model\n");
}
