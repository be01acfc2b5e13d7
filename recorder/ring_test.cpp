#include "recorder/ring.h"
#include "recorder/ring_reader.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using recorder::Cell;
using recorder::readRing;
using recorder::Ring;
using recorder::RingHeader;
using Lines = std::vector<std::string>;

constexpr std::size_t smallest = recorder::fewestCells * sizeof(Cell);

struct RingFile : testing::Test {
    RingFile() {
        char name[] = "/tmp/ring-XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/recording";
    }
    ~RingFile() override { std::filesystem::remove_all(folder); }

    std::string bytes() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(const std::string& text) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    }
    Lines lines() const { return readRing(bytes()); }

    std::string folder;
    std::string path;
};

TEST_F(RingFile, HasItsLinesInOrderWhateverTheirLength) {
    Lines expected;
    const auto ring = Ring::open(path, smallest);
    ASSERT_NE(ring, nullptr);
    for (const std::size_t length : {0, 1, 43, 44, 45, 88, 89, 500}) {
        expected.emplace_back(length, static_cast<char>('a' + expected.size()));
        ring->append(expected.back());
    }
    EXPECT_EQ(lines(), expected);
}

TEST_F(RingFile, KeepsTheNewestLinesWhenItIsFull) {
    const auto ring = Ring::open(path, smallest);
    for (int i = 0; i < 5000; ++i)
        ring->append("line " + std::to_string(i));
    const Lines found = lines();
    ASSERT_EQ(found.size(), recorder::fewestCells);
    EXPECT_EQ(found.front(), "line " + std::to_string(5000 - recorder::fewestCells));
    EXPECT_EQ(found.back(), "line 4999");
}

TEST_F(RingFile, BeginsWithAGapWhenItsOldestLineIsHalfOverwritten) {
    const auto ring = Ring::open(path, smallest);
    ring->append(std::string(100, 'x'));
    for (std::size_t i = 0; i < recorder::fewestCells - 2; ++i)
        ring->append("y");
    const Lines found = lines();
    EXPECT_EQ(found.front(), recorder::gapLine);
    EXPECT_EQ(found[1], "y");
}

TEST_F(RingFile, GoesOnWhenItIsOpenedAgain) {
    Ring::open(path, smallest)->append("first");
    Ring::open(path, smallest)->append("second");
    EXPECT_EQ(lines(), (Lines{"first", "second"}));
}

TEST_F(RingFile, IsMadeAnewWithAnotherSizeVersionOrContent) {
    Ring::open(path, smallest)->append("old");
    Ring::open(path, 2 * smallest)->append("new");
    EXPECT_EQ(lines(), Lines{"new"});
    std::string other = bytes();
    other[8] = 99;
    write(other);
    Ring::open(path, 2 * smallest)->append("newer");
    EXPECT_EQ(lines(), Lines{"newer"});
    write("not a recording");
    Ring::open(path, smallest)->append("newest");
    EXPECT_EQ(lines(), Lines{"newest"});
}

TEST_F(RingFile, IsRefusedWhereItIsALinkAFolderOrHasASecondName) {
    const std::string victim = folder + "/victim";
    std::ofstream(victim) << "precious";
    std::filesystem::create_symlink(victim, path);
    EXPECT_EQ(Ring::open(path, smallest), nullptr);
    std::filesystem::remove(path);
    std::filesystem::create_hard_link(victim, path);
    EXPECT_EQ(Ring::open(path, smallest), nullptr);
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(Ring::open(path, smallest), nullptr);
    EXPECT_EQ(std::filesystem::file_size(victim), 8U);
}

TEST_F(RingFile, IsReadableForItsOwnerAndTheFoldersGroupOnly) {
    const mode_t old = umask(0);
    const auto ring = Ring::open(path, smallest);
    umask(old);
    struct stat file {};
    struct stat parent {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    ASSERT_EQ(stat(folder.c_str(), &parent), 0);
    EXPECT_EQ(file.st_mode & 07777U, 0640U);
    EXPECT_EQ(file.st_gid, parent.st_gid);
}

TEST_F(RingFile, LosesOnlyTheLineThatWasBeingWrittenAtACrash) {
    const pid_t child = fork();
    if (child == 0) {
        const auto ring = Ring::open(path, smallest);
        for (int i = 0;; ++i)
            ring->append("line " + std::to_string(i) + ' ' + std::string(i % 200, 'x'));
    }
    ASSERT_GT(child, 0);
    usleep(100000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    Lines found = lines();
    ASSERT_GT(found.size(), 100U);
    if (found.front() == recorder::gapLine)
        found.erase(found.begin());
    if (found.back() == recorder::gapLine)
        found.pop_back();
    int number = std::stoi(found.front().substr(5));
    for (const std::string& line : found) {
        EXPECT_EQ(line, "line " + std::to_string(number) + ' ' + std::string(number % 200, 'x'));
        ++number;
    }
}

TEST_F(RingFile, HasAGapWhereALineIsDamaged) {
    {
        const auto ring = Ring::open(path, smallest);
        for (const char* line : {"one", "two", "three"})
            ring->append(line);
    }
    std::string damaged = bytes();
    damaged[sizeof(RingHeader) + sizeof(Cell) + 30] ^= 1; // in the text of "two"
    write(damaged);
    EXPECT_EQ(lines(), (Lines{"one", std::string(recorder::gapLine), "three"}));
}

TEST_F(RingFile, TakesTheLinesOfTwoWriters) {
    const auto ring = Ring::open(path, smallest * 16);
    const auto write = [&](char letter) {
        for (int i = 0; i < 2000; ++i)
            ring->append(letter + std::to_string(i) + std::string(i % 100, letter));
    };
    std::thread other(write, 'b');
    write('a');
    other.join();
    int next[2] = {0, 0};
    for (const std::string& line : lines()) {
        ASSERT_NE(line, recorder::gapLine);
        int& number = next[line.front() - 'a'];
        ASSERT_EQ(line, line.front() + std::to_string(number) + std::string(number % 100, line.front()));
        ++number;
    }
    EXPECT_EQ(next[0], 2000);
    EXPECT_EQ(next[1], 2000);
}

TEST_F(RingFile, IsReadAsFarAsItGoesWhenItIsCut) {
    {
        const auto ring = Ring::open(path, smallest);
        for (int i = 0; i < 10; ++i)
            ring->append("line");
    }
    const std::string whole = bytes();
    EXPECT_EQ(readRing(whole.substr(0, sizeof(RingHeader) + 4 * sizeof(Cell) + 17)).size(), 4U);
    EXPECT_THROW(readRing(whole.substr(0, 20)), std::runtime_error);
}

TEST_F(RingFile, OfAnotherVersionOrKindIsRefusedWithAReason) {
    Ring::open(path, smallest)->append("line");
    std::string other = bytes();
    other[8] = 2;
    try {
        readRing(other);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the file has version 2, this program reads version 1");
    }
    EXPECT_THROW(readRing("GIF89a"), std::runtime_error);
    EXPECT_THROW(readRing(""), std::runtime_error);
}

} // namespace
