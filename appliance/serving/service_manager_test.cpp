#include "appliance/serving/service_manager.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class ServiceManager : public testing::Test {
protected:
    ~ServiceManager() override {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
        unlink(path_.c_str());
    }
    // Listens at a path, or at the abstract name of the same letters.
    void listenAt(bool abstractName) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, path_.size());
        if (abstractName)
            address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
        ASSERT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), length), 0);
        const std::string name = (abstractName ? "@" : "/") + path_.substr(1);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    std::string received() const {
        std::array<char, 100> bytes{};
        const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        return count < 0 ? "" : std::string(bytes.data(), static_cast<std::size_t>(count));
    }

    std::string path_ =
        (std::filesystem::temp_directory_path() / ("notify" + std::to_string(getpid()))).string();
    int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

TEST_F(ServiceManager, IsToldAtAPath) {
    listenAt(false);
    EXPECT_TRUE(tellServiceManager("READY=1"));
    EXPECT_EQ(received(), "READY=1");
}

TEST_F(ServiceManager, IsToldAtAnAbstractName) {
    listenAt(true);
    EXPECT_TRUE(tellServiceManager("READY=1"));
    EXPECT_EQ(received(), "READY=1");
}

TEST_F(ServiceManager, MayBeMissing) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_TRUE(tellServiceManager("READY=1"));
    setenv("NOTIFY_SOCKET", "relative", 1);
    EXPECT_FALSE(tellServiceManager("READY=1"));
    setenv("NOTIFY_SOCKET", "/does/not/exist", 1);
    EXPECT_FALSE(tellServiceManager("READY=1"));
}

} // namespace
