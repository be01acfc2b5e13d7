#include "appliance/front/arguments.h"

#include "appliance/front/option_letters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace front {
namespace {

using testing::ElementsAre;

// The arguments of a player whose front stored these bytes.
std::vector<std::string> stored(std::string_view bytes) {
    const int fd = memfd_create("arguments", MFD_CLOEXEC);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    lseek(fd, 0, SEEK_SET);
    setenv(argumentsVariable, std::to_string(fd).c_str(), 1);
    char name[] = "masked";
    char* argv[] = {name, nullptr};
    Arguments arguments(1, argv);
    EXPECT_EQ(std::getenv(argumentsVariable), nullptr) << "not for the player's own children";
    EXPECT_EQ(lseek(fd, 0, SEEK_SET), -1) << "closed";
    EXPECT_EQ(arguments.values()[arguments.count()], nullptr);
    return {arguments.values(), arguments.values() + arguments.count()};
}

TEST(Arguments, StoredOnesAreUsed) {
    EXPECT_THAT(stored(std::string_view("player\0-p\0secret\0\0host\0", 23)),
                ElementsAre("player", "-p", "secret", "", "host"));
    EXPECT_THAT(stored(std::string("player\0", 7) + std::string(20'000, 'x') + std::string(1, '\0')),
                ElementsAre("player", std::string(20'000, 'x')));
}

TEST(Arguments, WithoutStoredOnesThoseOfMainAreUsed) {
    EXPECT_THAT(stored(""), ElementsAre("masked"));
    unsetenv(argumentsVariable);
    char name[] = "player";
    char option[] = "-v";
    char* argv[] = {name, option, nullptr};
    Arguments arguments(2, argv);
    ASSERT_EQ(arguments.count(), 2);
    EXPECT_EQ(arguments.values()[1], option) << "the originals, so that secrets in them can be overwritten";
}

} // namespace
} // namespace front
