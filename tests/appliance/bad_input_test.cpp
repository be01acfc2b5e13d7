// Broken parameter files, wrong addresses and hostile encoders.
#include "tests/appliance/appliance.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::Oddity;

namespace fs = std::filesystem;

// ---- The parameter file

TEST(ParameterFile, GarbageLinesAreLoggedAndTheOthersAreUsed) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    std::string garbage = "[broken\n= value without a key\nno equals sign\n\x01\xff\xfe\n[Decoder]\n";
    garbage += std::string(100000, 'x') + '\n';
    decoder.setParameterFile(garbage + decoder.parameterText());
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.waitForLog("decoder.conf, line 1 can't be read: "));
    EXPECT_TRUE(decoder.waitForLog("decoder.conf, line 6 can't be read: "));
}

TEST(ParameterFile, MissingFileCountsAsEmpty) {
    Appliance decoder;
    decoder.setParameterFile(std::nullopt);
    decoder.start();
    EXPECT_TRUE(decoder.waitForState("DISCONNECTED"));
    EXPECT_EQ(decoder.status()["connected"], false);
    EXPECT_EQ(decoder.stop(SIGINT), 0);
}

TEST(ParameterFile, ReadOnlyFileIsUsedAndNeverWritten) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.set("Decoder.Connected", "no");
    appliance::writeFile(decoder.parameterFile(), decoder.parameterText());
    const std::string before = appliance::readFile(decoder.parameterFile());
    fs::permissions(decoder.parameterFile(), fs::perms::owner_read);
    decoder.keepParameterFile();
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(appliance::readFile(decoder.parameterFile()), before);
    EXPECT_TRUE(decoder.waitForLog("decoder.conf"));
    EXPECT_EQ(decoder.ctl({"set", "Decoder.SequenceMode", "manual"}).status, 1);
}

TEST(ParameterFile, UnknownTypeIsLoggedAndOtherSourcesPlay) {
    Appliance decoder;
    decoder.addEncoder("Strange", {}, {{"VideoSourceType", "h265"}});
    decoder.addEncoder("Sound");
    decoder.setManual();
    decoder.start();
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Strange"));
    EXPECT_TRUE(decoder.waitForLog("h265"));
    decoder.ctl({"select", "Sound"});
    EXPECT_TRUE(decoder.showsMoving(1));
}

TEST(ParameterFile, UnknownModeIsLoggedAndThePreviousModeIsKept) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.set("Decoder.SequenceMode", "Auto");
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.waitForLog("Illegal mode 'Auto' in Decoder.SequenceMode!"));
}

// ---- Addresses and encoders

struct Hostile {
    const char* name;
    std::string address;
    std::function<void(int)> behaviour; // none: only the address is wrong
    const char* errorCode;
    double requests; // how many timeouts the detection may take
};

std::ostream& operator<<(std::ostream& out, const Hostile& hostile) {
    return out << hostile.name;
}

void stayBusy(int fd) {
    while (appliance::readRequest(fd)) {
    }
    ::pause();
}

void sendGarbage(int fd) {
    appliance::readRequest(fd);
    std::string noise;
    for (unsigned i = 0, value = 12345; i < 4096; ++i) {
        value = value * 1103515245 + 12345;
        noise += static_cast<char>(value >> 16);
    }
    appliance::writeAll(fd, noise);
}

// Sends a parameter of a hundred megabytes, and no stream.
void sendFlood(int fd) {
    std::string request;
    char byte = 0;
    while (request.find("\r\n\r\n") == std::string::npos && read(fd, &byte, 1) == 1) {
        request += byte;
    }
    if (request.find("param") == std::string::npos) {
        appliance::writeAll(fd, "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n");
        return;
    }
    appliance::writeAll(fd,
                        "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 104857600\r\n\r\n");
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 100 && appliance::writeAll(fd, block); ++i) {
    }
}

void sendSlowly(int fd) {
    appliance::readRequest(fd);
    for (const char c : std::string("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nProperties")) {
        if (!appliance::writeAll(fd, std::string(1, c))) {
            return;
        }
        appliance::pause(std::chrono::milliseconds(400));
    }
}

void sendEndlessHeaders(int fd) {
    appliance::readRequest(fd);
    appliance::writeAll(fd, "HTTP/1.0 200 OK\r\n");
    while (appliance::writeAll(fd, "X-More: and more and more and more\r\n")) {
    }
}

class HostileEncoder : public testing::TestWithParam<Hostile> {};

TEST_P(HostileEncoder, LeadsToAnErrorCodeInBoundedTime) {
    constexpr double timeout = 2; // seconds
    const Hostile& hostile = GetParam();
    Appliance decoder;
    decoder.set("Decoder.AutoDetectTimeout", "2");
    std::unique_ptr<Oddity> oddity;
    std::string address = hostile.address;
    if (hostile.behaviour) {
        oddity = std::make_unique<Oddity>(hostile.behaviour);
        address = oddity->address();
    }
    decoder.addSource("Hostile", {{"Address", address}});
    decoder.addEncoder("Sound");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    const double took = decoder.secondsInLog("-> REQUEST_ENCODER_TYPE", "-> MANUAL_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_GE(took, 0);
    EXPECT_LE(took, hostile.requests * timeout + 1.5);
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), hostile.errorCode);
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Hostile(" + address + ")"));
    EXPECT_EQ(decoder.ctl({"select", "Sound"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1)) << "the supervisor keeps working";
}

INSTANTIATE_TEST_SUITE_P(Of, HostileEncoder,
                         testing::Values(Hostile{"NoSuchHost", "no..such..host", {}, "32", 1},
                                         Hostile{"NobodyListens", "127.0.0.1:1", {}, "32", 1},
                                         Hostile{"BadPort", "127.0.0.1:99999", {}, "32", 1},
                                         Hostile{"Silent", "", stayBusy, "11", 3},
                                         Hostile{"Garbage", "", sendGarbage, "11", 3},
                                         Hostile{"Flood", "", sendFlood, "20", 4},
                                         Hostile{"Slow", "", sendSlowly, "11", 3},
                                         Hostile{"EndlessHeaders", "", sendEndlessHeaders, "11", 3}),
                         [](const auto& value) { return std::string(value.param.name); });

// ---- Interrupting a detection

TEST(Interruption, SelectInterruptsADetectionAtOnce) {
    Appliance decoder;
    const Oddity silent(stayBusy);
    decoder.addSource("Silent", {{"Address", silent.address()}});
    decoder.addEncoder("Sound");
    decoder.setManual();
    decoder.set("Decoder.AutoDetectTimeout", "60");
    decoder.start();
    ASSERT_TRUE(decoder.waitForText(0, "Automatically detecting encoder and connection type for Silent"));
    decoder.ctl({"select", "Sound"});
    ASSERT_TRUE(decoder.waitForLog("Spotted EID_SELECT. Sending SIGUSR1"));
    ASSERT_TRUE(decoder.waitForLog("REQUEST_ENCODER_TYPE(6) -> REQUEST_ENCODER_FAILED(10)"));
    const double took = decoder.secondsInLog("Sending SIGUSR1", "-> REQUEST_ENCODER_FAILED");
    std::cout << "interrupted after " << took * 1000 << " ms\n";
    EXPECT_GE(took, 0);
    EXPECT_LE(took, 1) << "the request might have taken 60 s; on an idle machine this takes a few ms";
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "") << "an interrupted detection leaves no error code";
    EXPECT_EQ(decoder.sourceValue(0, "VideoSourceType"), "");
}

TEST(Interruption, LockInterruptsADetection) {
    Appliance decoder;
    const Oddity silent(stayBusy);
    decoder.addSource("Silent", {{"Address", silent.address()}});
    decoder.setManual();
    decoder.set("Decoder.AutoDetectTimeout", "60");
    decoder.start();
    ASSERT_TRUE(decoder.waitForText(0, "Automatically detecting"));
    decoder.ctl({"lock"});
    EXPECT_TRUE(decoder.waitForState("LOCKED"));
    decoder.ctl({"disconnect"});
    decoder.ctl({"reconnect"});
    EXPECT_TRUE(decoder.waitForState("DISCONNECTED"));
}

} // namespace
