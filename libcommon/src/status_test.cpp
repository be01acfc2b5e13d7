#include <libcommon/status.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/events.h>
#include <libcommon/params.h>

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class Status : public ApplianceTest {
protected:
    static std::string valueFile(const std::string& name) { return file("/run/decoder/source/" + name); }
    static void conf(std::string_view text) { write(parameterFile(0), text); }
};

TEST_F(Status, AValueIsTextInAFileOfItsOwn) {
    status(3, "Model", "Vexo 241");
    status(3, "APIVersion", 2);
    status(0, "ErrorCode", -1);
    EXPECT_EQ(status(3, "Model"), "Vexo 241");
    EXPECT_EQ(status(3, "APIVersion"), "2");
    EXPECT_EQ(status(0, "ErrorCode"), "-1");
    EXPECT_EQ(read(valueFile("3/Model")), "Vexo 241\n");
    EXPECT_EQ(log(), "");
}

TEST_F(Status, AValueThatIsThereAlreadyIsNotWrittenAgain) {
    status(0, "Model", "x");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(valueFile("0/Model").c_str(), &before), 0);
    status(0, "Model", "x");
    ASSERT_EQ(stat(valueFile("0/Model").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
    status(0, "Model", "y");
    EXPECT_EQ(status(0, "Model"), "y");
}

TEST_F(Status, WhatWasNeverSetIsEmpty) {
    EXPECT_EQ(status(0, "Model"), "");
    status(0, "Model", "x");
    EXPECT_EQ(status(0, "Audio"), "");
    EXPECT_EQ(status(1, "Model"), "");
    EXPECT_EQ(log(), "");
}

TEST_F(Status, TheEmptyTextClears) {
    for (const char* empty : {"", static_cast<const char*>(nullptr)}) {
        status(0, "Model", "x");
        status(0, "Model", empty);
        status(0, "Model", empty);
        EXPECT_EQ(status(0, "Model"), "");
        EXPECT_FALSE(exists(valueFile("0/Model")));
    }
    EXPECT_EQ(log(), "");
}

TEST_F(Status, APrintableTextComesBackAsItWas) {
    for (const std::string& text :
         {std::string(" "), std::string("T\xc3\xbcr \xf0\x9f\x98\x80 \"x\" \\n"), std::string(60000, 'x')}) {
        status(0, "Model", text.c_str());
        EXPECT_EQ(status(0, "Model"), text);
    }
    EXPECT_EQ(log(), "");
}

// An encoder may send any bytes. A rotation is compared with "180": no other text may become "180".
TEST_F(Status, WhatWouldGarbleATerminalIsStoredPrintable) {
    status(0, "Model", "\x1b]0;title\x07\x1b[2J M\r\nx\tt\x7f");
    EXPECT_EQ(status(0, "Model"), " ]0;title  [2J M  x t ");
    status(0, "ImageRotation", "180\n");
    EXPECT_EQ(status(0, "ImageRotation"), "180 ");
    status(0, "ImageRotation", "\xff\xc3(\xc2\x9b\xed\xa0\x80");
    EXPECT_EQ(status(0, "ImageRotation"), "?"
                                          "?( ???");
    copyStatus(0, 1, "ImageRotation");
    EXPECT_EQ(read(valueFile("1/ImageRotation")), "?"
                                                  "?( ???\n");
}

TEST_F(Status, TheTraceOfADetectionKeepsItsLines) {
    status(0, "DetectionTrace", "detection of x\n0.0 4.1 GET /\x1b\n\nend\xff");
    EXPECT_EQ(status(0, "DetectionTrace"), "detection of x\n0.0 4.1 GET / \n\nend?");
}

TEST_F(Status, BadIndicesAndKeysAreLoggedAndChangeNothing) {
    status(0, "Model", "x");
    const auto before = entries(file("/run/decoder/source"));
    for (const int index : {-1, INT_MIN})
        status(index, "Model", "y");
    for (const char* key : {"", ".", "..", "../Model", "a/b", "a b", "a.b", ".source", "Mod\xc3\xa9l", "a\n"})
        status(0, key, "y");
    status(0, std::string("Mo\0el", 5), 1);
    status(0, std::string(65, 'x'), "y");
    EXPECT_EQ(logCount("There is no status value"), 14U) << log();
    EXPECT_EQ(logCount(""), 14U);
    clearLog();
    EXPECT_EQ(status(-1, "Model"), "");
    EXPECT_EQ(status(0, "../0/Model"), "");
    copyStatus(-1, 0, "Model");
    copyStatus(0, -1, "Model");
    copyStatus(0, 1, "../Model");
    EXPECT_EQ(logCount("There is no status value"), 5U) << log();
    EXPECT_EQ(entries(file("/run/decoder/source")), before);
    EXPECT_EQ(status(0, "Model"), "x");
}

TEST_F(Status, AValueThatIsTooLongIsRefused) {
    status(0, "Model", "x");
    status(0, "Model", std::string(65537, 'y').c_str());
    EXPECT_EQ(status(0, "Model"), "x");
    EXPECT_EQ(logCount("Status value \"Model\" of source 0 is too long: 65537 bytes."), 1U);
}

TEST_F(Status, CopiesValuesAndTheirAbsence) {
    status(0, "Model", "x");
    status(1, "Audio", "yes");
    copyStatus(0, 1, "Model");
    copyStatus(0, 1, "Audio");
    copyStatus(0, 0, "Model");
    EXPECT_EQ(status(1, "Model"), "x");
    EXPECT_EQ(status(1, "Audio"), "");
    EXPECT_EQ(status(0, "Model"), "x");
}

TEST_F(Status, FailedWritesAreLoggedAndTheOldValueStays) {
    status(0, "Model", "x");
    ASSERT_EQ(mkdir(valueFile("0/Audio").c_str(), 0755), 0);
    status(0, "Audio", "yes");
    status(0, "Audio", "");
    EXPECT_EQ(logCount("Failed to write " + valueFile("0/Audio") + ". (errno=21 Is a directory)"), 2U)
        << log();
    EXPECT_EQ(status(0, "Audio"), "");
    EXPECT_EQ(logCount("Failed to read " + valueFile("0/Audio")), 1U);
    EXPECT_EQ(entries(valueFile("0")), (std::vector<std::string>{".source", "Audio", "Model"}));
}

TEST_F(Status, LinksAreReplacedAndNeverFollowed) {
    write(file("/secret"), "secret\n");
    status(0, "Model", "x");
    ASSERT_EQ(symlink(file("/secret").c_str(), valueFile("0/Audio").c_str()), 0);
    EXPECT_EQ(status(0, "Audio"), "");
    status(0, "Audio", "yes");
    EXPECT_EQ(status(0, "Audio"), "yes");
    EXPECT_EQ(read(file("/secret")), "secret\n");
}

TEST_F(Status, AHugeFileIsNotRead) {
    status(0, "Model", "x");
    ASSERT_EQ(truncate(valueFile("0/Model").c_str(), 100 << 20), 0);
    EXPECT_EQ(status(0, "Model"), "");
    EXPECT_EQ(logCount("(errno=27 File too large)"), 1U);
}

TEST_F(Status, AReaderSeesTheOldValueOrTheNewOne) {
    const std::string a(3000, 'a');
    const std::string b(40, 'b');
    status(0, "Model", a.c_str());
    const Signpost stop;
    const pid_t writer = start([&] {
        for (int i = 0; !stop.isReached(); ++i)
            status(0, "Model", i % 2 == 0 ? b.c_str() : a.c_str());
        return 0;
    });
    for (int i = 0; i < 2000; ++i) {
        const std::string seen = status(0, "Model");
        ASSERT_TRUE(seen == a || seen == b) << seen.size();
    }
    stop.reach();
    EXPECT_EQ(finish(writer), 0);
}

TEST_F(Status, ProcessesWriteAtOnce) {
    const auto results = inChildren(4, [](int child) {
        for (int i = 0; i < 100; ++i) {
            status(child % 2, "Key" + std::to_string(i % 10), child);
            status(child, "Own", i);
        }
        return 0;
    });
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 0}));
    for (int child = 0; child < 4; ++child)
        EXPECT_EQ(status(child, "Own"), "99");
    EXPECT_EQ(entries(valueFile("3")), (std::vector<std::string>{".source", "Own"}));
    EXPECT_EQ(log(), "");
}

// A process that was stopped while it wrote.
TEST_F(Status, AWriterThatGetsNoLockSaysWhoHoldsItAndReadersNeverWait) {
    status(0, "Model", "old");
    status(1, "Model", "gone");
    ASSERT_EQ(initEventQueue(), 0); // the supervisor gives up first
    const int held = open(valueFile(".lock").c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    status(0, "Model", "new");
    const std::string holder =
        "process " + std::to_string(getpid()) + " (libcommon_statu) holds the lock " + valueFile(".lock");
    EXPECT_EQ(logCount("Failed to write " + valueFile("0/Model") + ": " + holder +
                       "; the value is lost. (errno=110 Connection timed out)"),
              1U)
        << log();
    EXPECT_EQ(status(0, "Model"), "old");
    syncEncoderInfo();
    EXPECT_EQ(logCount("Failed to update the values of the sources: " + holder), 1U) << log();
    EXPECT_EQ(status(1, "Model"), "gone");
    close(held);
    status(0, "Model", "new");
    EXPECT_EQ(status(0, "Model"), "new");
    removeEventQueue();
}

// ---- Tables.

TEST_F(Status, TheTablesAreThese) {
    const std::vector<std::string> types(std::begin(videoSourceTypeString), std::end(videoSourceTypeString));
    EXPECT_EQ(types,
              (std::vector<std::string>{"auto", "mjpeg", "mpeg2-unicast", "mpeg2-multicast", "rtsp-unicast",
                                        "rtsp-multicast", "rtsp-tcp", "rtsp-http", "unknown"}));
    const std::vector<std::string> modes(std::begin(connectModeString), std::end(connectModeString));
    EXPECT_EQ(modes, (std::vector<std::string>{"auto", "http", "http-auth", "https", "unknown"}));
    const std::vector<std::string> audio(std::begin(audioSourceTypeString), std::end(audioSourceTypeString));
    EXPECT_EQ(audio, (std::vector<std::string>{"none", "mpeg", "g711", "g726", "aac", "unknown"}));
}

TEST_F(Status, NumbersOfNamesIgnoreCase) {
    EXPECT_EQ(getNumberByString("auto", videoSourceTypeString), 0);
    EXPECT_EQ(getNumberByString("RTSP-Http", videoSourceTypeString), 7);
    EXPECT_EQ(getNumberByString("unknown", videoSourceTypeString), 8);
    EXPECT_EQ(getNumberByString("https", connectModeString), 3);
    EXPECT_EQ(getNumberByString("AAC", audioSourceTypeString), 4);
    EXPECT_EQ(getNumberByString("", videoSourceTypeString), 0);
    EXPECT_EQ(getNumberByString(nullptr, audioSourceTypeString), 0);
    EXPECT_EQ(log(), "");
}

TEST_F(Status, AnUnknownNameIsMinusOneAndLogged) {
    for (const char* text : {"h264", "aut", "autoo", " auto", "0"})
        EXPECT_EQ(getNumberByString(text, videoSourceTypeString), -1) << text;
    EXPECT_EQ(logCount("\"h264\" is none of the 9 known names."), 1U);
    EXPECT_EQ(logCount(""), 5U);
    EXPECT_EQ(getNumberByString("auto", videoSourceTypeString, 0), -1);
}

// ---- syncEncoderInfo.

class SyncEncoderInfo : public Status {
protected:
    static constexpr const char* twoSources = "[Encoder.Gate]\nAddress = 10.0.0.1\nVideoSourceNumber = 1\n"
                                              "[Encoder.Yard]\nAddress = 10.0.0.2\nVideoSourceType = mjpeg\n";
};

TEST_F(SyncEncoderInfo, KeepsTheValuesOfUnchangedSources) {
    conf(twoSources);
    status(0, "Model", "a");
    status(1, "Model", "b");
    syncEncoderInfo();
    conf("# moved\n[Decoder]\nx = 1\n" + std::string(twoSources) + "UserName = somebody\n");
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "a");
    EXPECT_EQ(status(1, "Model"), "b");
    EXPECT_EQ(log(), "");
}

TEST_F(SyncEncoderInfo, ItsFirstCallRemovesWhatDeadWritersLeft) {
    conf(twoSources);
    status(0, "Model", "a");
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    waitpid(dead, nullptr, 0);
    const std::string ofDead = std::to_string(dead) + "." + std::to_string(dead);
    const std::string ofThis = std::to_string(getpid()) + "." + std::to_string(getpid());
    for (const std::string& name : {"0/.Model." + ofDead, "0/.Model." + ofThis, "../.events.id." + ofDead,
                                    "../display/.line0." + ofDead, std::string("0/.Model.x.y")})
        write(valueFile(name), "half");
    syncEncoderInfo();
    EXPECT_FALSE(exists(valueFile("0/.Model." + ofDead)));
    EXPECT_FALSE(exists(valueFile("../.events.id." + ofDead)));
    EXPECT_FALSE(exists(valueFile("../display/.line0." + ofDead)));
    EXPECT_TRUE(exists(valueFile("0/.Model." + ofThis)));
    EXPECT_TRUE(exists(valueFile("0/.Model.x.y")));
    EXPECT_EQ(status(0, "Model"), "a");
    EXPECT_EQ(log(), "");
}

TEST_F(SyncEncoderInfo, DropsTheValuesOfIndicesThatNoLongerExist) {
    conf(twoSources);
    for (const int index : {0, 1, 2, 17})
        status(index, "Model", "x");
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "x");
    EXPECT_EQ(status(1, "Model"), "x");
    EXPECT_EQ(entries(file("/run/decoder/source")), (std::vector<std::string>{".lock", "0", "1"}));
    std::remove(parameterFile(0).c_str());
    syncEncoderInfo();
    EXPECT_EQ(entries(file("/run/decoder/source")), std::vector<std::string>{".lock"});
    EXPECT_EQ(log(), "");
}

TEST_F(SyncEncoderInfo, DropsTheValuesOfSourcesThatChanged) {
    const char* changes[] = {"Address = 10.0.0.9\nVideoSourceNumber = 1\nVideoSourceType = mjpeg\n",
                             "Address = 10.0.0.1\nVideoSourceNumber = 2\nVideoSourceType = mjpeg\n",
                             "Address = 10.0.0.1\nVideoSourceNumber = 1\nVideoSourceType = auto\n",
                             "Address = 10.0.0.1\nVideoSourceNumber = 1\n",
                             "Address = 10.0.0.1\n",
                             ""};
    const std::string before =
        "[Encoder.A]\nAddress = 10.0.0.1\nVideoSourceNumber = 1\nVideoSourceType = mjpeg\n";
    for (const char* change : changes) {
        conf(before);
        syncEncoderInfo();
        status(0, "Model", "x");
        syncEncoderInfo();
        ASSERT_EQ(status(0, "Model"), "x");
        conf(std::string("[Encoder.A]\n") + change);
        ASSERT_EQ(status(0, "Model"), "x"); // only the sync drops
        syncEncoderInfo();
        EXPECT_EQ(status(0, "Model"), "") << change;
        status(0, "Model", "y"); // and now they are the new source's
        syncEncoderInfo();
        EXPECT_EQ(status(0, "Model"), "y") << change;
    }
    EXPECT_EQ(log(), "");
}

TEST_F(SyncEncoderInfo, ANewSourceBeforeTheOthersMovesNoValues) {
    conf(twoSources);
    status(0, "Model", "gate");
    status(1, "Model", "yard");
    conf("[Encoder.New]\nAddress = 10.0.0.3\n" + std::string(twoSources));
    syncEncoderInfo();
    for (const int index : {0, 1, 2})
        EXPECT_EQ(status(index, "Model"), "");
}

TEST_F(SyncEncoderInfo, ValuesWrittenBeforeTheirSourceExistedAreNotItsOwn) {
    status(0, "Model", "x");
    conf(twoSources);
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "");
}

TEST_F(SyncEncoderInfo, ForeignValuesBecomeTheSourcesOwn) {
    conf(twoSources);
    write(valueFile("0/Model"), "x\n");
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "x");
    conf("[Encoder.Gate]\nAddress = 10.0.0.77\n");
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "");
}

TEST_F(SyncEncoderInfo, ForeignFilesStay) {
    conf("");
    for (const char* name : {"readme/x", "01/x", "-1/x", "9999999999/x", "1x/x"})
        write(valueFile(name), "x\n");
    syncEncoderInfo();
    EXPECT_EQ(entries(file("/run/decoder/source")),
              (std::vector<std::string>{"-1", ".lock", "01", "1x", "9999999999", "readme"}));
}

TEST_F(SyncEncoderInfo, AFileThatCantBeReadDropsNothing) {
    conf(twoSources);
    status(0, "Model", "x");
    std::remove(parameterFile(0).c_str());
    ASSERT_EQ(mkdir(parameterFile(0).c_str(), 0755), 0);
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "x");
}

TEST_F(SyncEncoderInfo, FoldersInValuesPlacesAreLoggedAndNothingElseIsLost) {
    conf("");
    status(0, "Model", "x");
    ASSERT_EQ(mkdir(valueFile("0/sub").c_str(), 0755), 0);
    syncEncoderInfo();
    EXPECT_EQ(status(0, "Model"), "");
    EXPECT_EQ(logCount("Failed to remove"), 2U) << log();
}

TEST_F(SyncEncoderInfo, WithoutAStoreItDoesNothing) {
    syncEncoderInfo();
    EXPECT_EQ(log(), "");
}

TEST_F(SyncEncoderInfo, WorksUnderTheParameterFilesLock) {
    conf(twoSources);
    status(0, "Model", "x");
    status(5, "Model", "x");
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    syncEncoderInfo();
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    EXPECT_EQ(status(0, "Model"), "x");
    EXPECT_EQ(status(5, "Model"), "");
}

TEST_F(SyncEncoderInfo, WritersAndSyncsAtOnceLeaveWholeFolders) {
    conf(twoSources);
    const auto results = inChildren(3, [](int child) {
        for (int i = 0; i < 100; ++i) {
            if (child == 0)
                syncEncoderInfo();
            else
                status(child == 1 ? 0 : 9, "Model", i);
        }
        return 0;
    });
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(status(0, "Model"), "99");
    EXPECT_EQ(log(), "");
}

} // namespace
