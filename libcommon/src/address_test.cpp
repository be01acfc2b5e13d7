#include "libcommon/src/address_text.h"
#include "libcommon/src/network_fixture.h"

#include <libcommon/network.h>

#include <vector>

namespace {

struct Split {
    int result;
    std::string host;
    unsigned short port;
    bool operator==(const Split&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Split& split) {
    return out << split.result << " \"" << split.host << "\" " << split.port;
}

Split split(const std::string& address) {
    Split result = {0, "untouched", 554};
    result.result = splitAddress(address, result.host, result.port);
    return result;
}

const Split unreadable = {-1, "", 554};

using Address = NetworkTest;

TEST_F(Address, AHostKeepsTheDefaultPort) {
    EXPECT_EQ(split("192.168.0.90"), (Split{0, "192.168.0.90", 554}));
    EXPECT_EQ(split("camera-1.example_net.com"), (Split{0, "camera-1.example_net.com", 554}));
    EXPECT_EQ(split("camera."), (Split{0, "camera.", 554}));
    EXPECT_EQ(split("7"), (Split{0, "7", 554}));
    EXPECT_EQ(log(), "");
}

TEST_F(Address, AWrittenPortReplacesTheDefault) {
    EXPECT_EQ(split("camera:8080"), (Split{0, "camera", 8080}));
    EXPECT_EQ(split("10.0.0.1:1"), (Split{0, "10.0.0.1", 1}));
    EXPECT_EQ(split("10.0.0.1:65535"), (Split{0, "10.0.0.1", 65535}));
    EXPECT_EQ(split("10.0.0.1:00080"), (Split{0, "10.0.0.1", 80}));
}

TEST_F(Address, IPv6WithAndWithoutBrackets) {
    EXPECT_EQ(split("[::1]"), (Split{0, "::1", 554}));
    EXPECT_EQ(split("[2001:db8::7]:8080"), (Split{0, "2001:db8::7", 8080}));
    EXPECT_EQ(split("[fe80::1%eth0]:80"), (Split{0, "fe80::1%eth0", 80}));
    EXPECT_EQ(split("2001:db8::7"), (Split{0, "2001:db8::7", 554}));
    EXPECT_EQ(split("::1"), (Split{0, "::1", 554}));
    EXPECT_EQ(split("::ffff:10.0.0.1"), (Split{0, "::ffff:10.0.0.1", 554}));
}

TEST_F(Address, BadPorts) {
    for (const char* port : {"0", "00000", "65536", "99999", "000080", "123456789012345678901", "80x", "x80",
                             "", "+80", "-80", " 80", "80 ", "0x50", "8 0", "80:"})
        for (const char* host : {"camera:", "[::1]:"})
            EXPECT_EQ(split(std::string(host) + port), unreadable) << host << port;
}

TEST_F(Address, BadHosts) {
    const std::vector<std::string> addresses = {"",
                                                " ",
                                                ":",
                                                ":80",
                                                " camera",
                                                "camera ",
                                                "cam era",
                                                "camera\t",
                                                "camera\n:80",
                                                "-camera",
                                                "http://camera",
                                                "camera/path",
                                                "camera:80/path",
                                                "user@camera",
                                                "a,b",
                                                "a;b",
                                                "caf\xc3\xa9",
                                                std::string("ca\0m", 4),
                                                std::string(256, 'a')};
    for (const std::string& address : addresses)
        EXPECT_EQ(split(address), unreadable) << address;
}

TEST_F(Address, BadIPv6) {
    const std::vector<std::string> addresses = {"[",
                                                "]",
                                                "[]",
                                                "[]:80",
                                                "[::1",
                                                "::1]",
                                                "[::1]80",
                                                "[::1]x:80",
                                                "[[::1]]",
                                                "[camera]",
                                                "[10.0.0.1]:80",
                                                "1:2:3",
                                                "1:2:3:4:5:6:7:8:9",
                                                "::g",
                                                "camera:80:90",
                                                "[::1%]",
                                                "[::1%a b]",
                                                std::string("::1\0", 4)};
    for (const std::string& address : addresses)
        EXPECT_EQ(split(address), unreadable) << address;
}

TEST_F(Address, AZoneIsNoLongerThanAnInterfaceName) {
    const std::string longest(15, 'e');
    EXPECT_EQ(split("fe80::1%" + longest), (Split{0, "fe80::1%" + longest, 554}));
    EXPECT_EQ(split("fe80::1%" + longest + "e"), unreadable);
    EXPECT_EQ(split("::%" + std::string(300, '.')), unreadable);
    EXPECT_EQ(split("[::%" + std::string(300, '.') + "]:80"), unreadable);
}

TEST_F(Address, ALongHostIsTakenToTheLimit) {
    EXPECT_EQ(split(std::string(255, 'a') + ":80"), (Split{0, std::string(255, 'a'), 80}));
}

TEST_F(Address, AnUnreadableAddressIsLoggedAtLevel3WithTheReason) {
    split("camera:80x");
    EXPECT_NE(
        log().find(" 3 Can't read the address \"camera:80x\": the port is not a number from 1 to 65535"),
        std::string::npos)
        << log();
}

TEST_F(Address, CredentialsInAnAddressAreNeverLogged) {
    split("root:s3cret@camera");
    split("root:s3@cret@camera:80");
    EXPECT_EQ(log().find("s3"), std::string::npos) << log();
    EXPECT_EQ(log().find("root"), std::string::npos) << log();
    EXPECT_NE(log().find("...@camera"), std::string::npos) << log();
}

TEST_F(Address, TheCoreTellsAWrittenPortFromNone) {
    EXPECT_EQ(network::parseAddress("camera").port, 0);
    EXPECT_EQ(network::parseAddress("camera:7").port, 7);
    EXPECT_STRNE(network::parseAddress("").error, "");
}

} // namespace
