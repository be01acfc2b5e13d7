#include "appliance/encoder/tunnel.h"

#include "appliance/encoder/auth.h"

#include <array>
#include <gtest/gtest.h>

namespace {

std::string taken(Tunnel& tunnel) {
    std::array<char, 100> buffer{};
    const long count = tunnel.read(buffer.data(), buffer.size(), in(std::chrono::milliseconds(0)));
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::to_string(count);
}

} // namespace

TEST(Tunnel, DecodesRequestsThatAreCutAnywhereAndPaddedEach) {
    Tunnel tunnel;
    const std::string encoded = base64Encoded("first") + base64Encoded("second!") + "\r\n";
    std::string all;
    for (const char c : encoded) {
        EXPECT_TRUE(tunnel.push({&c, 1}));
        if (const std::string bytes = taken(tunnel); bytes != std::to_string(Connection::timedOut))
            all += bytes;
    }
    EXPECT_EQ(all, "firstsecond!");
}

TEST(Tunnel, RefusesWhatIsNotBase64AndWhatNobodyReads) {
    Tunnel tunnel;
    EXPECT_FALSE(tunnel.push("****"));
    Tunnel full;
    const std::string encoded = base64Encoded(std::string(30000, 'x'));
    EXPECT_TRUE(full.push(encoded));
    EXPECT_TRUE(full.push(encoded));
    EXPECT_FALSE(full.push(encoded));
}

TEST(Tunnel, AClosedOneEndsAfterItsLastBytes) {
    Tunnel tunnel;
    tunnel.push(base64Encoded("abc"));
    tunnel.close();
    EXPECT_EQ(taken(tunnel), "abc");
    EXPECT_EQ(taken(tunnel), std::to_string(Connection::endOfStream));
    EXPECT_FALSE(tunnel.push("YWJj"));
}

TEST(Tunnels, ACookieIsOpenOnce) {
    Tunnels tunnels;
    const auto first = tunnels.open("a");
    EXPECT_TRUE(first);
    EXPECT_FALSE(tunnels.open("a"));
    EXPECT_EQ(tunnels.find("a"), first);
    tunnels.close("a");
    EXPECT_FALSE(tunnels.find("a"));
    for (int i = 0; i < 256; ++i)
        EXPECT_TRUE(tunnels.open(std::to_string(i)));
    EXPECT_FALSE(tunnels.open("one too many"));
}
