#include "appliance/gateway/warm/warm_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace gateway;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string trace(int kind, const std::string& name, const std::string& host, int port) {
    return "detection of \"x\"\n0.0 1.0 GET / -> 200\nend 35.2 accepted: kind " + std::to_string(kind) +
           " (" + name + "), connect mode 1 (http), \"" + host + "\" port " + std::to_string(port) + "\n";
}

WarmCandidate source(const std::string& address, const std::string& type, int kind, int port) {
    WarmCandidate made;
    made.section = {{"Address", address},      {"VideoSourceNumber", "1"}, {"VideoSourceType", "auto"},
                    {"AutoEnabled", "yes"},    {"ManualEnabled", "yes"},   {"DisplayTime", "10"},
                    {"Resolution", "default"}, {"Compression", "default"}, {"UserName", "viewer"},
                    {"Password", "secret"}};
    made.detected = {.errorCode = "0",
                     .type = type,
                     .connectMode = "http",
                     .apiVersion = "2",
                     .trace = trace(kind, type, address, port)};
    return made;
}

WarmCandidate rtsp(const std::string& address) {
    return source(address, "rtsp-unicast", 4, 554);
}

std::string placeOf(const WarmCandidate& one) {
    const auto stream = detectedStream(one.section, one.detected);
    return stream ? stream->address.text() : "none";
}

std::vector<int> firsts(const std::vector<WarmTarget>& targets) {
    std::vector<int> indices;
    for (const WarmTarget& target : targets)
        indices.push_back(target.sources.front());
    return indices;
}

WarmSettings settings(WarmSettings::Sources which, std::size_t most = 8) {
    WarmSettings made;
    made.sources = which;
    made.mostSources = most;
    return made;
}

const std::vector<WarmCandidate> four{rtsp("10.0.0.1"), rtsp("10.0.0.2"), rtsp("10.0.0.3"), rtsp("10.0.0.4")};

std::vector<SourceParams> sectionsOf(const std::vector<WarmCandidate>& sources) {
    std::vector<SourceParams> sections;
    for (const WarmCandidate& one : sources)
        sections.push_back(one.section);
    return sections;
}

using enum WarmSettings::Sources;

} // namespace

TEST(DetectedStream, IsWhatThePlayerOfEachKindAsksFor) {
    EXPECT_EQ(placeOf(source("10.0.0.1", "mjpeg", 1, 80)),
              "mjpeg-http://[10.0.0.1]:80/vexo-cgi/mjpg/video.cgi?camera=1");
    EXPECT_EQ(placeOf(source("10.0.0.1", "mpeg2-unicast", 2, 8080)),
              "mpeg2-http://[10.0.0.1]:8080/vexo-cgi/mpeg2/video.cgi");
    EXPECT_EQ(placeOf(source("239.1.1.1", "mpeg2-multicast", 3, 5004)), "group://[239.1.1.1]:5004");
    EXPECT_EQ(placeOf(source("10.0.0.1", "rtsp-unicast", 4, 554)),
              "rtsp-unicast://[10.0.0.1]:554/mpeg4/1/media.orv");
    EXPECT_EQ(placeOf(source("10.0.0.1", "rtsp-multicast", 5, 554)),
              "rtsp-multicast://[10.0.0.1]:554/mpeg4/1/media.orv");
    EXPECT_EQ(placeOf(source("10.0.0.1", "rtsp-tcp", 6, 8554)),
              "rtsp-tcp://[10.0.0.1]:8554/mpeg4/1/media.orv");
    EXPECT_EQ(placeOf(source("10.0.0.1", "rtsp-http", 7, 80)), "rtsp-http://[10.0.0.1]:80/mpeg4/1/media.orv");
}

TEST(DetectedStream, TlsIsUsedAsByThePlayers) {
    WarmCandidate pictures = source("10.0.0.1", "mjpeg", 1, 443);
    pictures.detected.connectMode = "https";
    EXPECT_EQ(placeOf(pictures), "mjpeg-https://[10.0.0.1]:443/vexo-cgi/mjpg/video.cgi?camera=1");
    WarmCandidate tunnel = source("10.0.0.1", "rtsp-http", 7, 443);
    tunnel.detected.connectMode = "https";
    EXPECT_EQ(placeOf(tunnel), "rtsp-https://[10.0.0.1]:443/mpeg4/1/media.orv");
}

TEST(DetectedStream, PictureOptionsAreThoseOfTheCommandLine) {
    WarmCandidate one = source("10.0.0.1", "mjpeg", 1, 80);
    one.section["Resolution"] = "352x288";
    one.section["Compression"] = "30";
    EXPECT_EQ(placeOf(one), "mjpeg-http://[10.0.0.1]:80/vexo-cgi/mjpg/video.cgi?camera=1&resolution=352x288&"
                            "compression=30");
    one.section["VideoSourceNumber"] = "0";
    one.section["Compression"] = "default";
    EXPECT_EQ(placeOf(one),
              "mjpeg-http://[10.0.0.1]:80/vexo-cgi/mjpg/video.cgi?camera=quad&resolution=352x288");
    one.detected.apiVersion = "1";
    EXPECT_EQ(placeOf(one), "mjpeg-http://[10.0.0.1]:80/vexo-cgi/mjpg/video.cgi?quad=1&resolution=352x288");
    one.detected.apiVersion = "0"; // the first option is lost
    EXPECT_EQ(placeOf(one), "mjpeg-http://[10.0.0.1]:80/vexo-cgi/mjpg/video.cgi");
}

TEST(DetectedStream, CredentialsAreUsedWhenTheEncoderAsksForThem) {
    WarmCandidate one = rtsp("10.0.0.1");
    EXPECT_EQ(detectedStream(one.section, one.detected)->user, "");
    one.detected.connectMode = "http-auth";
    EXPECT_EQ(detectedStream(one.section, one.detected)->user, "viewer");
    EXPECT_EQ(detectedStream(one.section, one.detected)->password, "secret");
}

TEST(DetectedStream, WhatWasNotDetectedInOrderIsNone) {
    for (const char* error : {"", "11", "garbage"}) {
        WarmCandidate one = rtsp("10.0.0.1");
        one.detected.errorCode = error;
        EXPECT_EQ(placeOf(one), "none") << error;
    }
    WarmCandidate flushed = rtsp("10.0.0.1");
    flushed.detected.type = "";
    EXPECT_EQ(placeOf(flushed), "none");
    WarmCandidate other = rtsp("10.0.0.1"); // the trace is of another detection
    other.detected.type = "rtsp-tcp";
    EXPECT_EQ(placeOf(other), "none");
    for (const char* text :
         {"", "end 1.0 interrupted", " accepted: kind 4 (rtsp-unicast), connect mode 1 (http), \"",
          " accepted: kind 4 (x), \"long...\" port 554", " accepted: kind 4 (x), \"h\" port x",
          " accepted: kind 4 (x), \"a\\x20b\" port 554"}) {
        WarmCandidate one = rtsp("10.0.0.1");
        one.detected.trace = text;
        EXPECT_EQ(placeOf(one), "none") << text;
    }
}

TEST(WarmPlan, NoneKeepsNothingButWhatIsMarked) {
    std::vector<WarmCandidate> sources = four;
    EXPECT_THAT(planWarm(settings(none), sources, {true, 0, 9000}), IsEmpty());
    sources[2].section["Warm"] = "yes";
    EXPECT_THAT(firsts(planWarm(settings(none), sources, {true, -1, 0})), ElementsAre(2));
}

TEST(WarmPlan, TheNextOfTheSequenceIsOpenedBeforeItsTurn) {
    EXPECT_THAT(nextSources(sectionsOf(four), {true, 1, 0}), IsEmpty());
    EXPECT_THAT(nextSources(sectionsOf(four), {true, 1, 10000 - warmLeadMs}), ElementsAre(2));
    EXPECT_THAT(nextSources(sectionsOf(four), {true, 3, 9000}), ElementsAre(0));
    EXPECT_THAT(nextSources(sectionsOf(four), {true, 3, 60000}), ElementsAre(0))
        << "an alarm holds the sequence";
    EXPECT_THAT(nextSources(sectionsOf(four), {true, -1, 0}), IsEmpty());
}

TEST(WarmPlan, ShortTurnsNeedSeveralSources) {
    std::vector<WarmCandidate> sources = four;
    for (WarmCandidate& one : sources)
        one.section["DisplayTime"] = "3";
    EXPECT_THAT(nextSources(sectionsOf(sources), {true, 0, 0}), ElementsAre(1, 2));
}

TEST(WarmPlan, TheButtonBringsTheNextEnabledSource) {
    std::vector<WarmCandidate> sources = four;
    sources[2].section["ManualEnabled"] = "no";
    EXPECT_THAT(nextSources(sectionsOf(sources), {false, 1, 0}), ElementsAre(3));
    EXPECT_THAT(nextSources(sectionsOf(sources), {false, 3, 0}), ElementsAre(0));
    EXPECT_THAT(nextSources(sectionsOf({four[0]}), {false, 0, 0}), IsEmpty());
}

TEST(WarmPlan, AllAreTheEnabledOnesTheNextFirst) {
    std::vector<WarmCandidate> sources = four;
    sources[1].section["AutoEnabled"] = "no";
    EXPECT_THAT(firsts(planWarm(settings(all), sources, {true, 2, 9000})), ElementsAre(3, 0, 2));
    EXPECT_THAT(firsts(planWarm(settings(all), sources, {false, -1, 0})), ElementsAre(0, 1, 2, 3));
}

TEST(WarmPlan, ALimitKeepsTheMostImportant) {
    std::vector<WarmCandidate> sources = four;
    sources[1].section["Warm"] = "yes";
    EXPECT_THAT(firsts(planWarm(settings(all, 2), sources, {false, 2, 0})), ElementsAre(1, 3));
}

TEST(WarmPlan, ASourceThatMustNotBeKeptIsNot) {
    std::vector<WarmCandidate> sources = four;
    sources[3].section["Warm"] = "no";
    EXPECT_THAT(firsts(planWarm(settings(all), sources, {false, 2, 0})), ElementsAre(0, 1, 2));
}

TEST(WarmPlan, UndetectedSourcesAreLeftOut) {
    std::vector<WarmCandidate> sources = four;
    sources[0].detected = {};
    EXPECT_THAT(firsts(planWarm(settings(all), sources, {false, -1, 0})), ElementsAre(1, 2, 3));
}

TEST(WarmPlan, SourcesWithTheSameInputAreOneStream) {
    std::vector<WarmCandidate> sources{rtsp("10.0.0.1"), rtsp("10.0.0.2"), rtsp("10.0.0.1")};
    sources[2].detected.trace = ""; // the first one was detected, and the result shared
    const std::vector<WarmTarget> targets = planWarm(settings(all), sources, {false, -1, 0});
    ASSERT_EQ(targets.size(), 2U);
    EXPECT_THAT(targets[0].sources, ElementsAre(0, 2));
}

TEST(WarmPlan, SettingsHaveDefaults) {
    EXPECT_EQ(WarmSettings::read("", 0, 0), WarmSettings());
    EXPECT_EQ(WarmSettings::read("none", 0, 0).sources, none);
    EXPECT_EQ(WarmSettings::read("all", 3, 5).mostSources, 3U);
    EXPECT_EQ(WarmSettings::read("all", 3, 5).mostBytes, 5U << 20);
    EXPECT_EQ(WarmSettings::read("some", -1, -1), WarmSettings());
}

TEST(WarmPlan, MuchMemoryIsMuchOnEveryProcessor) {
    for (const int mebibytes : {4095, 4096, 8192, 65536})
        EXPECT_GE(WarmSettings::read("all", 3, mebibytes).mostBytes, std::size_t{4095} << 20) << mebibytes;
}
