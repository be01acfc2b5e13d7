// decoder-address as the service that it is, in a network namespace of the test.
#include "tests/appliance/isolation.h"
#include "tests/appliance/process.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace network {
namespace {

namespace fs = std::filesystem;
using appliance::eventually;
using testing::HasSubstr;

class DecoderAddress : public testing::Test {
protected:
    DecoderAddress() {
        char folder[] = "/tmp/decoder-address-XXXXXX";
        root = mkdtemp(folder);
        fs::create_directories(root / "etc/decoder");
        appliance::writeFile(configuration(), "# mine\n[Decoder]\nSequenceMode = auto\n");
    }
    ~DecoderAddress() override {
        service.reset();
        fs::remove_all(root);
    }
    void SetUp() override {
        if (!appliance::isolate())
            GTEST_SKIP() << "this user may not create a network namespace";
    }

    // Two networks, eth0 in 10.1.2.0/24 and wlan0 in 10.1.3.0/24, without routes.
    static void addNetworks() {
        ip("link add eth0 type veth peer name far0");
        ip("link add wlan0 type veth peer name far1");
        ip("link set eth0 up && ip link set far0 up && ip link set wlan0 up && ip link set far1 up");
        ip("address add 10.1.2.3/24 dev eth0 && ip address add 10.1.3.3/24 dev wlan0");
    }
    static void ip(const std::string& arguments) {
        const appliance::Finished done = appliance::runToEnd({"/bin/sh", "-c", "ip " + arguments}, {});
        ASSERT_EQ(done.status, 0) << "ip " << arguments << ": " << done.errors;
    }

    std::map<std::string, std::string> environment() const {
        return {{"APPLIANCE_ROOT", root}, {"LIBCOMMON_LOG", log()}};
    }
    appliance::Finished run(const std::vector<std::string>& arguments) const {
        std::vector<std::string> all{PROGRAM_FOLDER "/decoder-address"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return appliance::runToEnd(all, environment());
    }
    void start() {
        service = std::make_unique<appliance::Process>(
            std::vector<std::string>{PROGRAM_FOLDER "/decoder-address"}, environment(), root / "output");
    }

    std::string log() const { return root / "log"; }
    std::string configuration() const { return root / "etc/decoder/decoder.conf"; }
    std::string address() const {
        const std::string text = appliance::readFile(configuration());
        const std::string key = "\nIPAddress = ";
        const std::size_t at = text.find(key);
        if (at == std::string::npos)
            return "-";
        const std::size_t start = at + key.size();
        return text.substr(start, text.find('\n', start) - start);
    }
    bool becomes(const std::string& wanted) const {
        return eventually([&] { return address() == wanted; });
    }

    fs::path root;
    std::unique_ptr<appliance::Process> service;
};

TEST_F(DecoderAddress, OnceWritesTheAddressAndKeepsTheRest) {
    addNetworks();
    ip("route add default via 10.1.2.1");
    EXPECT_EQ(run({"--once"}).status, 0);
    EXPECT_EQ(address(), "10.1.2.3");
    EXPECT_THAT(appliance::readFile(configuration()), HasSubstr("# mine\n[Decoder]\nSequenceMode = auto\n"));
    EXPECT_THAT(appliance::readFile(log()), HasSubstr("This machine's address is 10.1.2.3 (eth0)"));
}

TEST_F(DecoderAddress, SameAddressIsNotWrittenAgain) {
    addNetworks();
    ip("route add default via 10.1.2.1");
    EXPECT_EQ(run({"--once"}).status, 0);
    struct stat before {};
    ASSERT_EQ(stat(configuration().c_str(), &before), 0);
    EXPECT_EQ(run({"--once"}).status, 0);
    struct stat after {};
    ASSERT_EQ(stat(configuration().c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino) << "a write replaces the file";
}

TEST_F(DecoderAddress, OnceWithoutARouteEmptiesAnOldAddress) {
    appliance::writeFile(configuration(), "[Network.eth0]\nIPAddress = 192.0.2.1\n");
    EXPECT_EQ(run({"--once"}).status, 0);
    EXPECT_EQ(address(), "");
}

TEST_F(DecoderAddress, OnceFailsWhereTheParameterCannotBeWritten) {
    addNetworks();
    ip("route add default via 10.1.2.1");
    fs::permissions(configuration(), fs::perms::owner_read);
    EXPECT_EQ(run({"--once"}).status, 1);
    EXPECT_EQ(address(), "-");
}

TEST_F(DecoderAddress, FollowsAddressesRoutesAndInterfaces) {
    addNetworks();
    start();
    ip("route add default via 10.1.2.1 metric 100");
    EXPECT_TRUE(becomes("10.1.2.3")) << address();
    ip("address del 10.1.2.3/24 dev eth0 && ip address add 10.1.2.4/24 dev eth0");
    ip("route replace default via 10.1.2.1 metric 100");
    EXPECT_TRUE(becomes("10.1.2.4")) << "a new address: " << address();
    ip("route add default via 10.1.3.1 metric 50");
    EXPECT_TRUE(becomes("10.1.3.3")) << "a route with a lower metric: " << address();
    ip("link del wlan0");
    EXPECT_TRUE(becomes("10.1.2.4")) << "its interface went: " << address();
    ip("link set eth0 down");
    EXPECT_TRUE(becomes("")) << "no route is left: " << address();
    ip("link set eth0 up && ip route add default via 10.1.2.1");
    EXPECT_TRUE(becomes("10.1.2.4")) << "back again: " << address();
}

TEST_F(DecoderAddress, CatchesUpAfterNoticesWereLost) {
    addNetworks();
    ip("route add default via 10.1.2.1");
    start();
    EXPECT_TRUE(becomes("10.1.2.3"));
    service->signal(SIGSTOP);
    ip("-V >/dev/null; for i in $(seq 2000); do echo address add 10.7.0.1/32 dev eth0; "
       "echo address del 10.7.0.1/32 dev eth0; done | ip -batch -");
    ip("route replace default via 10.1.3.1");
    service->signal(SIGCONT);
    EXPECT_TRUE(becomes("10.1.3.3")) << address();
    EXPECT_THAT(appliance::readFile(log()), HasSubstr("all is read anew"));
}

TEST_F(DecoderAddress, SignalsEndIt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        addNetworks();
        ip("route add default via 10.1.2.1");
        appliance::writeFile(configuration(), "[Decoder]\n");
        start();
        EXPECT_TRUE(becomes("10.1.2.3"));
        service->signal(signal);
        const auto status = service->waitForEnd();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0);
        ip("link del eth0 && ip link del wlan0");
    }
}

TEST_F(DecoderAddress, WaitsWithoutUsingTheProcessor) {
    addNetworks();
    ip("route add default via 10.1.2.1");
    start();
    EXPECT_TRUE(becomes("10.1.2.3"));
    const auto switches = [&] {
        const std::string status = appliance::readFile("/proc/" + std::to_string(service->pid()) + "/status");
        return status.substr(status.find("voluntary_ctxt_switches"));
    };
    appliance::pause(std::chrono::milliseconds(500));
    const std::string before = switches();
    appliance::pause(std::chrono::milliseconds(1500));
    EXPECT_EQ(switches(), before) << "it wakes up although nothing changed";
}

TEST_F(DecoderAddress, PrintsItsHelpAndVersion) {
    EXPECT_THAT(run({"--help"}).output, HasSubstr("--once"));
    EXPECT_THAT(run({"--version"}).output, testing::StartsWith("decoder-address "));
    EXPECT_EQ(run({"--nonsense"}).status, 2);
}

} // namespace
} // namespace network
