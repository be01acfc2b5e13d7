// Writing parameter files.
#include <libcommon/params.h>

#include "libcommon/src/appliance_fixture.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class ParamsWrite : public ApplianceTest {
protected:
    static void conf(std::string_view text) { write(parameterFile(0), text); }
    static std::string conf() { return read(parameterFile(0)); }
    static void set(const char* name, const char* value) { ParamWrapper(0, true)[name] = value; }
    static mode_t modeOf(const std::string& path) {
        struct stat state {};
        EXPECT_EQ(stat(path.c_str(), &state), 0) << path;
        return state.st_mode & 07777;
    }

    // A write that is refused: the file stays, one log line tells why, and nothing is left beside the file.
    static void expectRefused(const char* name, const char* value, const std::string& reason) {
        const bool was = exists(parameterFile(0)) && std::filesystem::is_regular_file(parameterFile(0));
        const std::string before = was ? conf() : "";
        clearLog();
        set(name, value);
        EXPECT_EQ(was ? conf() : "", before);
        EXPECT_EQ(logCount("Failed to write"), 1U) << log();
        EXPECT_EQ(logCount(reason), 1U) << log();
        for (const std::string& entry : entries(file("/etc/decoder")))
            EXPECT_TRUE(entry == "decoder.conf" || entry == ".decoder.conf.lock") << entry;
    }
};

TEST_F(ParamsWrite, MakesFileAndFoldersWhereThereAreNone) {
    umask(022);
    ParamWrapper(0, true)["Decoder.Connected"] = "yes";
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = -1;
    EXPECT_EQ(conf(), "[Decoder]\nConnected = yes\n");
    EXPECT_EQ(read(parameterFile(1)), "[Decoder.Info]\nCurrentSource = -1\n");
    EXPECT_EQ(modeOf(file("/etc/decoder")), 0755U);
    EXPECT_EQ(modeOf(file("/run/decoder")), 0755U);
    EXPECT_EQ(modeOf(parameterFile(0)), 0640U);
    EXPECT_EQ(modeOf(parameterFile(1)), 0644U);
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsWrite, KeepsAllThatItDoesNotChange) {
    conf("# My decoder\r\n\r\n[Decoder]\r\n  Connected=no   \r\njunk\r\n; end");
    set("Decoder.Connected", "yes");
    set("Decoder.Mode", "auto");
    EXPECT_EQ(conf(), "# My decoder\r\n\r\n[Decoder]\r\n  Connected=yes   \r\njunk\r\n; end\r\nMode = auto");
}

TEST_F(ParamsWrite, IntegersAreDecimal) {
    ParamWrapper params(0, true);
    for (const int number : {0, 5, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        params["A.x"] = number;
        EXPECT_EQ(params["A.x"].toInt(), number);
        EXPECT_EQ(params["A.x"].toString(), std::to_string(number));
    }
}

TEST_F(ParamsWrite, TheWriterReadsItsValueAtOnceUnlessItsHandleIsNotFresh) {
    conf("[A]\nx = 1\n");
    Param fresh = ParamWrapper(0, true)["A.x"];
    Param moment = ParamWrapper(0, false)["A.x"];
    fresh = "2";
    EXPECT_TRUE(fresh == "2");
    moment = "3";
    EXPECT_TRUE(moment == "1");
    EXPECT_TRUE(fresh == "3");
    fresh = nullptr;
    EXPECT_TRUE(fresh == "");
}

TEST_F(ParamsWrite, ModeAndOwnerStay) {
    conf("[A]\nx = 1\n");
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0664), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(parameterFile(0).c_str(), 1234, 5678), 0);
    }
    set("A.x", "2");
    struct stat state {};
    ASSERT_EQ(stat(parameterFile(0).c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777, 0664U);
    EXPECT_EQ(state.st_uid, root ? 1234U : geteuid());
    EXPECT_EQ(state.st_gid, root ? 5678U : getegid());
    EXPECT_EQ(conf(), "[A]\nx = 2\n");
}

TEST_F(ParamsWrite, TheSameValueAgainLeavesTheFileAlone) {
    conf("[A]\nx = 1\n");
    struct stat before {};
    struct stat after {};
    stat(parameterFile(0).c_str(), &before);
    set("A.x", "1");
    stat(parameterFile(0).c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

// Two versions of one length within one tick of the kernel's clock.
TEST_F(ParamsWrite, EachVersionIsYoungerThanTheOneBefore) {
    const ParamWrapper params(0, true);
    struct stat before {};
    for (int i = 100; i < 300; ++i) {
        params["A.x"] = i;
        struct stat now {};
        ASSERT_EQ(stat(parameterFile(0).c_str(), &now), 0);
        const bool later = now.st_mtim.tv_sec != before.st_mtim.tv_sec
                               ? now.st_mtim.tv_sec > before.st_mtim.tv_sec
                               : now.st_mtim.tv_nsec > before.st_mtim.tv_nsec;
        ASSERT_TRUE(later);
        before = now;
    }
}

TEST_F(ParamsWrite, AFileFromTheFutureGetsYoungerStill) {
    conf("[A]\nx = 1\n");
    const timespec future[2] = {{.tv_sec = 4'000'000'000, .tv_nsec = 999'999'999},
                                {.tv_sec = 4'000'000'000, .tv_nsec = 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, parameterFile(0).c_str(), future, 0), 0);
    set("A.x", "2");
    struct stat now {};
    ASSERT_EQ(stat(parameterFile(0).c_str(), &now), 0);
    EXPECT_EQ(now.st_mtim.tv_sec, 4'000'000'001);
    EXPECT_TRUE(ParamWrapper(0, true)["A.x"] == "2");
}

TEST_F(ParamsWrite, AFileWithoutAnyWritePermissionIsRefused) {
    conf("[A]\nx = 1\n");
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0444), 0);
    expectRefused("A.x", "2", "it is read-only. (errno=13 Permission denied)");
    expectRefused("B.new", "2", "it is read-only");
}

TEST_F(ParamsWrite, AMemberOfTheFilesGroupKeepsGroupAndMode) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    conf("[A]\nx = 1\n");
    ASSERT_EQ(chown(parameterFile(0).c_str(), 0, 5678), 0);
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0664), 0);
    EXPECT_EQ(asUser(1234, 5678, {file(""), file("/etc/decoder")},
                     [] {
                         set("A.x", "2");
                         return 0;
                     }),
              0);
    struct stat state {};
    ASSERT_EQ(stat(parameterFile(0).c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777, 0664U);
    EXPECT_EQ(state.st_gid, 5678U);
    EXPECT_EQ(conf(), "[A]\nx = 2\n");
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsWrite, AUserWhoMayNotWriteTheFileDoesNotReplaceIt) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    conf("[A]\nx = 1\n");
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0644), 0);
    asUser(1234, 1234, {file(""), file("/etc/decoder")}, [] {
        set("A.x", "2");
        return 0;
    });
    EXPECT_EQ(conf(), "[A]\nx = 1\n");
    EXPECT_EQ(logCount("it is read-only. (errno=13 Permission denied)"), 1U) << log();
}

TEST_F(ParamsWrite, AUserWhoMayNotReadTheFileSeesNothingAndGetsOneLogLine) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    conf("[A]\nx = 1\n");
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0600), 0);
    EXPECT_EQ(asUser(1234, 1234, {file(""), file("/etc/decoder")},
                     [] {
                         const ParamWrapper params(0, true);
                         for (int i = 0; i < 10; ++i)
                             if (params["A.x"] != "")
                                 return 1;
                         params["A.x"] = "2";
                         return 0;
                     }),
              0);
    EXPECT_EQ(conf(), "[A]\nx = 1\n");
    EXPECT_EQ(logCount("can't be read: Permission denied (errno=13)"), 1U) << log();
    EXPECT_EQ(logCount("Failed to write"), 1U);
}

TEST_F(ParamsWrite, BadNamesAndValuesAreRefusedAndTheValueIsNotLogged) {
    conf("[A]\nPassword = 1\n");
    expectRefused("A.Password", "secret\nx = 2", "the value has a control character");
    expectRefused("A.Password", "secret\x1b", "the value has a control character");
    expectRefused("A.Password", " secret", "begins or ends with a blank");
    expectRefused("A.Password", std::string(70000, 's').c_str(), "too long");
    expectRefused("", "secret", "the name is not complete");
    expectRefused("A.", "secret", "the name is not complete");
    expectRefused("A]\n[B.x", "secret", "a character that a name can't have");
    EXPECT_EQ(logCount("secret"), 0U);
    EXPECT_EQ(logCount("sss"), 0U);
}

TEST_F(ParamsWrite, AFolderInTheFilesPlaceIsRefused) {
    std::filesystem::create_directories(parameterFile(0));
    expectRefused("A.x", "1", "it can't be read. (errno=21 Is a directory)");
}

TEST_F(ParamsWrite, AFileThatIsTooBigIsRefused) {
    conf("[A]\nx = 1\n");
    ASSERT_EQ(truncate(parameterFile(0).c_str(), 5 << 20), 0);
    expectRefused("A.x", "2", "it can't be read. (errno=27 File too large)");
}

TEST_F(ParamsWrite, AFileMustNotBecomeTooBig) {
    std::string text = "[A]\n";
    while (text.size() < (4 << 20) - 100)
        text += "# a comment line of sixty-four characters, nothing else in it.\n";
    conf(text);
    expectRefused("A.x", std::string(1000, 'x').c_str(), "too long to be read");
    clearLog();
    set("A.x", "1");
    EXPECT_TRUE(ParamWrapper(0, true)["A.x"] == "1");
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsWrite, ALinkStaysAndTheFileBehindItIsReplaced) {
    write(file("/data/real.conf"), "[A]\nx = 1\n");
    std::filesystem::create_directories(file("/etc/decoder"));
    ASSERT_EQ(symlink("../../data/real.conf", parameterFile(0).c_str()), 0);
    set("A.x", "2");
    EXPECT_TRUE(std::filesystem::is_symlink(parameterFile(0)));
    EXPECT_EQ(read(file("/data/real.conf")), "[A]\nx = 2\n");
    EXPECT_TRUE(ParamWrapper(0, true)["A.x"] == "2");
    EXPECT_EQ(entries(file("/data")), std::vector<std::string>{"real.conf"});
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsWrite, ALinkToNothingIsRefused) {
    std::filesystem::create_directories(file("/etc/decoder"));
    ASSERT_EQ(symlink("/nowhere/at/all.conf", parameterFile(0).c_str()), 0);
    expectRefused("A.x", "1", "it is a link to nothing");
    EXPECT_TRUE(std::filesystem::is_symlink(parameterFile(0)));
}

TEST_F(ParamsWrite, AFolderThatCantBeMadeIsReported) {
    write(file("/etc"), "a file where the folder should be");
    set("A.x", "1");
    EXPECT_EQ(logCount("Failed to write \"A.x\" to " + parameterFile(0) +
                       ": its lock can't be taken; the value is lost. (errno=20 Not a directory)"),
              1U)
        << log();
}

TEST_F(ParamsWrite, TheRemainsOfAKilledWriterAreReplaced) {
    conf("[A]\nx = 1\n");
    write(file("/etc/decoder/.decoder.conf.new"), "half a fi");
    set("A.x", "2");
    EXPECT_EQ(conf(), "[A]\nx = 2\n");
    EXPECT_FALSE(exists(file("/etc/decoder/.decoder.conf.new")));
}

TEST_F(ParamsWrite, FourProcessesLoseNothing) {
    conf("# all of us\n[A]\n");
    const auto results = inChildren(4, [](int child) {
        const ParamWrapper params(0, true);
        for (int i = 0; i < 200; ++i) {
            const std::string name = "A.p" + std::to_string(child) + "n" + std::to_string(i % 50);
            params[name.c_str()] = i;
        }
        return 0;
    });
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 0}));
    const ParamWrapper params(0, true);
    for (int child = 0; child < 4; ++child)
        for (int i = 150; i < 200; ++i) {
            const std::string name = "A.p" + std::to_string(child) + "n" + std::to_string(i % 50);
            EXPECT_EQ(params[name.c_str()].toInt(), i) << name;
        }
    EXPECT_EQ(std::ranges::count(conf(), '\n'), 202);
    EXPECT_EQ(log(), "");
}

// Both values are always of one version: a reader never sees half a file or a missing file.
TEST_F(ParamsWrite, AReaderNeverSeesHalfAFile) {
    conf("[A]\nfirst = 0\n# " + std::string(20000, '-') + "\nlast = 1\n");
    const pid_t writer = start([] {
        for (int i = 0; i < 300; ++i)
            set("A.first", std::to_string(i).c_str());
        return 0;
    });
    int last = 0;
    while (last != 299) {
        const auto snapshot = ParamWrapper(0, false);
        ASSERT_TRUE(snapshot["A.last"] == "1");
        ASSERT_GE(snapshot["A.first"].toInt(),
                  std::exchange(last, snapshot["A.first"].toInt()) == 1 ? 0 : last);
    }
    EXPECT_EQ(finish(writer), 0);
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsWrite, AWriterThatIsKilledLeavesAWholeFile) {
    conf("[A]\nx = 0\n[B]\ny = 7\n");
    for (int round = 0; round < 30; ++round) {
        const Signpost begun;
        const pid_t writer = start([&] {
            for (int i = 1;; ++i) {
                set("A.x", std::to_string(i).c_str());
                if (i == 1 + round % 7)
                    begun.reach();
            }
            return 0;
        });
        begun.await();
        kill(writer, SIGKILL);
        EXPECT_EQ(finish(writer), 100 + SIGKILL);
        const ParamWrapper params(0, true);
        ASSERT_GE(params["A.x"].toInt(), 1);
        ASSERT_TRUE(params["B.y"] == "7");
        params["A.x"] = 0; // the lock went with the process
    }
    EXPECT_EQ(conf(), "[A]\nx = 0\n[B]\ny = 7\n");
}

// A program without locks saves the file again and again; each of our writes is in the file or in the log.
TEST_F(ParamsWrite, ForeignChangesMeanwhileAreNotOverwritten) {
    conf("[A]\nx = 0\ny = 0\n");
    const Signpost stop;
    const pid_t editor = start([&] {
        for (int i = 1; !stop.isReached(); ++i) {
            const std::string mine = parameterFile(0) + ".mine";
            write(mine, "[A]\nx = 0\ny = " + std::to_string(i) + "\n");
            rename(mine.c_str(), parameterFile(0).c_str());
        }
        return 0;
    });
    for (int i = 1; i < 50; ++i)
        set("A.x", std::to_string(i).c_str());
    stop.reach();
    EXPECT_EQ(finish(editor), 0);
    const ParamWrapper params(0, true);
    EXPECT_GE(params["A.y"].toInt(), 0);
    EXPECT_EQ(logCount(""), logCount("another program keeps changing it"));
}

} // namespace
