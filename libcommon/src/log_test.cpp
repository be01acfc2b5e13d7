#include <libcommon/log.h>

#include "libcommon/src/appliance_fixture.h"
#include "tests/support/system_log.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

// All lines that went to the system log.
std::string& systemLog() {
    static std::string& text = *new std::string;
    return text;
}

} // namespace

void systemLogLine(int priority, const std::string& text) {
    systemLog() += std::to_string(priority) + " " + text + "\n";
}

namespace {

class Log : public ApplianceTest {
protected:
    // The text of the only line.
    static std::string text() {
        const std::string all = log();
        std::smatch parts;
        EXPECT_TRUE(std::regex_match(all, parts, std::regex("\\S+ \\S+\\[\\d+\\] \\d ([^\n]*)\n"))) << all;
        return parts[1];
    }
    static std::vector<std::string> lines() {
        std::ifstream stream(file("/log"), std::ios::binary);
        std::vector<std::string> all;
        for (std::string line; std::getline(stream, line);)
            all.push_back(line);
        return all;
    }
};

TEST_F(Log, ALineHasTimeProgramPidLevelAndText) {
    logmsg(3, "Failed to %s. (errno=%d %s)", "read", 2, "No such file");
    const std::regex form(
        "20\\d\\d-[01]\\d-[0-3]\\dT[0-2]\\d:[0-5]\\d:[0-6]\\d\\.\\d{6}Z libcommon_log_test\\[" +
        std::to_string(getpid()) + "\\] 3 Failed to read\\. \\(errno=2 No such file\\)\n");
    EXPECT_TRUE(std::regex_match(log(), form)) << log();
}

TEST_F(Log, TheTimeIsNowInUtc) {
    // Not time(): it may lag behind by a tick.
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &before);
    logmsg(6, "x");
    clock_gettime(CLOCK_REALTIME, &after);
    std::tm parts{};
    ASSERT_NE(strptime(log().c_str(), "%Y-%m-%dT%H:%M:%S", &parts), nullptr);
    EXPECT_GE(timegm(&parts), before.tv_sec);
    EXPECT_LE(timegm(&parts), after.tv_sec);
}

TEST_F(Log, LevelsAreKeptAndOthersBecomeErrors) {
    for (const int level : {0, 2, 3, 6, 7, 8, -1, 1000})
        logmsg(level, "x");
    std::string levels;
    for (const std::string& line : lines())
        levels += line.at(line.find("] ") + 2);
    EXPECT_EQ(levels, "02367333");
}

TEST_F(Log, OneTrailingNewlineIsDroppedAndControlCharactersAreReplaced) {
    logmsg(6, "a\nb\rc\td\x1b[31m\x7f%c\xc2\x85z\xc3\xa4\n\n", 0);
    EXPECT_EQ(text(), "a b c d\x1b[31m    z\xc3\xa4 ");
}

TEST_F(Log, AnEmptyTextIsALineToo) {
    logmsg(6, "%s", "");
    logmsg(6, "\n");
    logmsg(6, nullptr);
    EXPECT_EQ(lines().size(), 3U);
}

TEST_F(Log, LongLinesAreCutBetweenCharacters) {
    for (const std::size_t size : {7000U, 8000U, 9000U, 100000U}) {
        std::string words = "x";
        while (words.size() < size)
            words += "\xc3\xa4";
        clearLog();
        logmsg(6, "%s", words.c_str());
        ASSERT_EQ(lines().size(), 1U);
        EXPECT_LE(log().size(), 8192U);
        const std::string kept = text();
        EXPECT_EQ(kept, words.substr(0, kept.size()));
        EXPECT_EQ(kept.size() % 2, 1U) << "half a character at the end";
        if (size == 7000) {
            EXPECT_EQ(kept, words);
        } else if (size >= 9000) {
            EXPECT_GE(log().size(), 8180U);
        }
    }
}

TEST_F(Log, KeepsErrno) {
    errno = ENOTTY;
    logmsg(6, "x");
    EXPECT_EQ(errno, ENOTTY);
    std::filesystem::remove_all(file(""));
    errno = EDOM;
    logmsg(6, "to nowhere");
    EXPECT_EQ(errno, EDOM);
}

TEST_F(Log, ARotatedFileIsOpenedAgain) {
    logmsg(6, "one");
    ASSERT_EQ(rename(file("/log").c_str(), file("/log.1").c_str()), 0);
    logmsg(6, "two");
    ASSERT_EQ(unlink(file("/log").c_str()), 0);
    logmsg(6, "three");
    EXPECT_NE(read(file("/log.1")).find("one\n"), std::string::npos);
    EXPECT_EQ(read(file("/log.1")).find("two"), std::string::npos);
    EXPECT_EQ(text(), "three");
}

TEST_F(Log, AnEmptiedFileContinuesFromItsStart) {
    logmsg(6, "one");
    ASSERT_EQ(truncate(file("/log").c_str(), 0), 0);
    logmsg(6, "two");
    EXPECT_EQ(text(), "two");
}

TEST_F(Log, ManyProcessesTearNoLine) {
    const std::string filler(3000, '-');
    const auto results = inChildren(4, [&](int child) {
        for (int i = 0; i < 300; ++i)
            logmsg(6, "<%d %d %s>", child, i, filler.substr(0, static_cast<std::size_t>(i) * 7).c_str());
        return 0;
    });
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 0}));
    const std::regex form("\\S+Z libcommon_log_test\\[\\d+\\] 6 <(\\d) (\\d+) -*>");
    std::set<std::pair<std::string, std::string>> seen;
    for (const std::string& line : lines()) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
        seen.insert({parts[1], parts[2]});
    }
    EXPECT_EQ(seen.size(), 1200U);
}

TEST_F(Log, NoLineIsLostWhileTheFileIsRotated) {
    constexpr int perWriter = 2000;
    const Signpost stop;
    const pid_t rotator = start([&] {
        int rotation = 0;
        while (!stop.isReached())
            rename(file("/log").c_str(), file("/log." + std::to_string(rotation++)).c_str());
        return 0;
    });
    const auto results = inChildren(2, [](int child) {
        std::thread other([child] {
            for (int i = 0; i < perWriter; ++i)
                logmsg(6, "<%d thread %d>", child, i);
        });
        for (int i = 0; i < perWriter; ++i)
            logmsg(6, "<%d main %d>", child, i);
        other.join();
        return 0;
    });
    stop.reach();
    EXPECT_EQ(finish(rotator), 0);
    EXPECT_EQ(results, (std::vector<int>{0, 0}));
    std::size_t count = 0;
    for (const std::string& name : entries(file(""))) {
        const std::string part = read(file("/" + name));
        count += static_cast<std::size_t>(std::count(part.begin(), part.end(), '\n'));
        EXPECT_TRUE(part.empty() || part.ends_with(">\n"));
    }
    EXPECT_EQ(count, 4U * perWriter);
}

TEST_F(Log, ADescriptorThatSomebodyElseGotIsNotWrittenTo) {
    logmsg(6, "one");
    for (int fd = 3; fd < 64; ++fd) // as code that closes descriptors of others
        close(fd);
    std::vector<int> theirs;
    theirs.reserve(8);
    for (int i = 0; i < 8; ++i)
        theirs.push_back(open(file("/theirs").c_str(), O_RDWR | O_CREAT, 0600));
    logmsg(6, "two");
    EXPECT_EQ(read(file("/theirs")), "");
    for (const int fd : theirs)
        EXPECT_EQ(fcntl(fd, F_GETFD), 0) << "closed";
    EXPECT_EQ(lines().size(), 2U);
}

TEST_F(Log, TheFileIsNeverOneOfTheStandardDescriptors) {
    EXPECT_EQ(inChild([] {
                  for (int fd = 0; fd < 64; ++fd)
                      close(fd);
                  logmsg(6, "x");
                  return fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1 ? 0
                                                                                                       : 1;
              }),
              0);
    EXPECT_EQ(text(), "x");
}

TEST_F(Log, TheFileIsClosedInProgramsThatAreRun) {
    logmsg(6, "x");
    struct stat logState {};
    ASSERT_EQ(stat(file("/log").c_str(), &logState), 0);
    bool found = false;
    for (int fd = 3; fd < 64; ++fd) {
        struct stat state {};
        if (fstat(fd, &state) == 0 && state.st_ino == logState.st_ino && state.st_dev == logState.st_dev) {
            found = true;
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        }
    }
    EXPECT_TRUE(found);
}

TEST_F(Log, LinesGoToTheSystemLogWhenTheFileCantBeOpened) {
    std::filesystem::remove_all(file(""));
    systemLog().clear();
    logmsg(3, "lost %s?\n", "%s");
    EXPECT_EQ(systemLog(), "3 lost %s?\n");
    std::filesystem::create_directories(file(""));
    logmsg(3, "found");
    EXPECT_EQ(systemLog(), "3 lost %s?\n");
    EXPECT_EQ(text(), "found");
}

TEST_F(Log, APipeThatNobodyReadsDoesNotBlock) {
    ASSERT_EQ(mkfifo(file("/log").c_str(), 0600), 0);
    systemLog().clear();
    logmsg(6, "x");
    EXPECT_EQ(systemLog(), "6 x\n");
    unlink(file("/log").c_str());
}

// The destination is chosen at a process's first line: these run in children of a process that never logged.
class LogDestination : public ApplianceTest {};

TEST_F(LogDestination, WithoutTheVariableLinesGoToTheSystemLog) {
    for (const bool set : {false, true})
        EXPECT_EQ(inChild([set] {
                      set ? setenv("LIBCOMMON_LOG", "", 1) : unsetenv("LIBCOMMON_LOG");
                      logmsg(2, "to the\nsystem %d\n", 1);
                      return systemLog() == "2 to the system 1\n" ? 0 : 1;
                  }),
                  0);
    EXPECT_FALSE(exists(file("/log")));
}

TEST_F(LogDestination, StandardError) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = start([&] {
        dup2(ends[1], 2);
        setenv("LIBCOMMON_LOG", "stderr", 1);
        logmsg(6, "to %s", "standard error");
        return systemLog().empty() ? 0 : 1;
    });
    char line[200] = {};
    EXPECT_GT(::read(ends[0], line, sizeof line - 1), 0);
    EXPECT_EQ(finish(child), 0);
    EXPECT_TRUE(std::regex_match(line, std::regex("\\S+Z libcommon_log_test\\[" + std::to_string(child) +
                                                  "\\] 6 to standard error\n")))
        << line;
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LogDestination, AStandardErrorThatNobodyReadsDoesNotBlock) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(inChild([&] {
                  dup2(ends[1], 2);
                  setenv("LIBCOMMON_LOG", "stderr", 1);
                  for (int i = 0; i < 2000; ++i)
                      logmsg(6, "%04d %s", i, std::string(100, 'x').c_str());
                  logmsg(6, "%s", std::string(6000, 'y').c_str());
                  return systemLog().find("1999") != std::string::npos ? 0 : 1; // the line is not lost there
              }),
              0);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LogDestination, ARelativeNameRefersToTheFirstWorkingDirectory) {
    EXPECT_EQ(inChild([] {
                  if (chdir(file("").c_str()) != 0)
                      return 1;
                  setenv("LIBCOMMON_LOG", "here.log", 1);
                  logmsg(6, "one");
                  if (chdir("/") != 0)
                      return 1;
                  unlink(file("/here.log").c_str());
                  logmsg(6, "two");
                  return 0;
              }),
              0);
    EXPECT_TRUE(read(file("/here.log")).ends_with("two\n"));
}

} // namespace
