// Writers that are killed with SIGKILL while they draw, grow or replace the store.
//
// STORE_KILLS=1000 in the environment kills that many writers in each test, instead of 200.
#include "appliance/screen/frame_store_fixture.h"
#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace screen {
namespace {

int wantedKills() {
    const char* wanted = std::getenv("STORE_KILLS");
    return wanted == nullptr ? 200 : std::clamp(std::atoi(wanted), 1, 100'000);
}

class KilledWriters : public FrameStoreFixture {
protected:
    // A child that does this until it is killed.
    static pid_t start(const std::function<void()>& act) {
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;)
                act();
        }
        return pid;
    }
    static void kill(pid_t pid) {
        ::kill(pid, SIGKILL);
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "it ended before, with " << status;
    }
    // Passes a random time shorter than the limit, so that each kill hits another instant.
    void passTime(int limitUs) {
        const std::int64_t until =
            gettimeusec() + static_cast<int>(random() % static_cast<unsigned>(limitUs));
        while (gettimeusec() < until) {
        }
    }
    // A shape up to the side. The store has to grow for it again and again while the side grows.
    PictureShape anyShape(int side) {
        constexpr std::array formats{PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12};
        const auto any = [&] { return 1 + static_cast<int>(random() % static_cast<unsigned>(side)); };
        return shaped(any(), any(), formats[random() % formats.size()]);
    }
    // Waits for a picture that was not checked yet.
    bool awaitPicture() {
        const std::int64_t until = gettimeusec() + 30'000'000;
        while (reader.wait(lastSeen, 1000) == lastSeen && gettimeusec() < until) {
        }
        return reader.newestInfo().number > lastSeen;
    }
    // Reads the newest picture and the records; everything has to be whole and in order.
    void check() {
        ASSERT_TRUE(reader.newest(frame));
        ASSERT_GE(frame.info.number, lastSeen);
        lastSeen = frame.info.number;
        if (frame.info.time > reader.blankedAt()) {
            ASSERT_TRUE(isWhole(frame)) << "torn picture " << lastSeen;
        }
        for (const FrameInfo& info : reader.infosSince(lastRecord)) {
            ASSERT_GT(info.number, lastRecord);
            ASSERT_GE(info.time, lastTime);
            lastRecord = info.number;
            lastTime = info.time;
        }
        ASSERT_GE(reader.blankedAt(), lastBlanked);
        lastBlanked = reader.blankedAt();
        ++checks;
    }
    // Whether the last writer died in a drawing: its slot is marked as being drawn.
    bool isHalfDrawn() const {
        std::string reason;
        const auto file = StoreFile::open(path, false, reason);
        if (file == nullptr)
            return false;
        const std::uint64_t next = file->newest() + 1;
        return file->header().slot[next % slotCount].sequence == 2 * next - 1;
    }

    std::mt19937 random{4711};
    FrameStore reader{path};
    Frame frame;
    std::uint64_t lastSeen = 0;
    std::uint64_t lastRecord = 0;
    std::int64_t lastTime = 0;
    std::int64_t lastBlanked = 0;
    int checks = 0;
};

TEST_F(KilledWriters, OneAfterTheOtherInPicturesOfAllShapes) {
    const int kills = wantedKills();
    int halfDrawn = 0;
    int grown = 0;
    for (int round = 0; round < kills; ++round) {
        const int side = 200 + 1800 * (round + 1) / kills;
        random.seed(static_cast<unsigned>(round));
        const std::uint64_t sizeBefore = fs::exists(path) ? fs::file_size(path) : 0;
        const pid_t victim = start([&] {
            static FrameStore store(path);
            drawSeeded(store, anyShape(side), round);
        });
        ASSERT_TRUE(awaitPicture()) << "the writer draws nothing";
        ASSERT_NO_FATAL_FAILURE(check());
        passTime(5'000);
        ASSERT_NO_FATAL_FAILURE(check());
        kill(victim);
        halfDrawn += isHalfDrawn() ? 1 : 0;
        grown += fs::file_size(path) != sizeBefore ? 1 : 0;
        ASSERT_NO_FATAL_FAILURE(check());
        FrameStore writer(path);
        ASSERT_EQ(drawSeeded(writer, shaped(33, 17), 1000).number, lastSeen + 1)
            << "a killed writer kept the lock, or took a number";
        ASSERT_NO_FATAL_FAILURE(check());
    }
    EXPECT_GT(halfDrawn, 0) << "no writer was killed while it drew: the test shows nothing";
    EXPECT_GT(grown, 1) << "no writer but the first made the store larger";
    std::printf("%d writers killed, %d in a drawing; %d checks, %llu pictures, the store grew in %d rounds\n",
                kills, halfDrawn, checks, static_cast<unsigned long long>(lastSeen), grown);
}

// Two writers at any time: the one that survives goes on while the other is killed.
TEST_F(KilledWriters, AmongOthersTearNothing) {
    const int kills = wantedKills() / 4 + 1;
    const auto startWriter = [&](int seed) {
        random.seed(static_cast<unsigned>(seed));
        return start([this, seed] {
            static FrameStore store(path);
            drawSeeded(store, anyShape(500), seed);
        });
    };
    pid_t other = startWriter(0);
    for (int round = 1; round <= kills; ++round) {
        const pid_t victim = startWriter(round);
        for (int i = 0; i < 6; ++i) {
            ASSERT_TRUE(awaitPicture());
            ASSERT_NO_FATAL_FAILURE(check());
        }
        passTime(2'000);
        kill(other);
        other = victim;
    }
    kill(other);
    ASSERT_NO_FATAL_FAILURE(check());
    FrameStore writer(path);
    EXPECT_EQ(drawSeeded(writer, shaped(33, 17), 9).number, lastSeen + 1);
    std::printf("%d writers killed; %d checks, %llu pictures\n", kills + 1, checks,
                static_cast<unsigned long long>(lastSeen));
}

// These writers only replace the file, so most of them die between its creation and its renaming.
TEST_F(KilledWriters, WhileTheyReplaceTheFileLoseNothing) {
    const int kills = wantedKills();
    FrameStore player(path);
    ASSERT_EQ(drawSeeded(player, shaped(353, 287), 7).number, 1U);
    int unfinished = 0;
    for (int round = 0; round < kills; ++round) {
        // Sizes go by pages: 1024 pixels in BGRx are one.
        const pid_t victim = start([&] {
            static FrameStore store(path);
            static int rows = 406 + 16 * (round % 200);
            store.reserve(shaped(1024, ++rows, PixelFormat::bgrx));
            if (rows % 16 == 15)
                store.reset(VideoMode::pal);
        });
        passTime(8'000);
        kill(victim);
        unfinished += fs::exists(path.string() + ".new") ? 1 : 0;
        ASSERT_NO_FATAL_FAILURE(check());
        ASSERT_EQ(lastSeen, static_cast<std::uint64_t>(round) + 1) << "the store lost its numbers";
        ASSERT_EQ(drawSeeded(player, shaped(353, 287), round).number, lastSeen + 1);
        ASSERT_NO_FATAL_FAILURE(check());
    }
    EXPECT_GT(unfinished, 0) << "no writer was killed while it replaced the file: the test shows nothing";
    ASSERT_TRUE(player.reset(VideoMode::pal));
    EXPECT_FALSE(fs::exists(path.string() + ".new")) << "the next replacement removes what is left";
    std::printf("%d writers killed, %d while they replaced the file\n", kills, unfinished);
}

} // namespace
} // namespace screen
