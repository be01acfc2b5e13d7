// Reading parameter files.
#include <libcommon/params.h>

#include "libcommon/src/appliance_fixture.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Params : public ApplianceTest {
protected:
    static std::string value(int fileId, const char* name) {
        return ParamWrapper(fileId, true)[name].toString();
    }
    static void conf(std::string_view text) { write(parameterFile(0), text); }
};

TEST_F(Params, AMissingFileReadsAsAnEmptyOneWithoutALogLine) {
    const ParamWrapper params(0, true);
    EXPECT_EQ(params["Decoder.Connected"].toString(), "");
    EXPECT_EQ(params["Decoder.Connected"].toInt(), 0);
    EXPECT_TRUE(getSubGroups(0, "Encoder").empty());
    EXPECT_EQ(log(), "");
    EXPECT_FALSE(exists(parameterFile(0)));
}

TEST_F(Params, EachFileHasParametersOfItsOwn) {
    conf("[Decoder]\nConnected = no\n");
    write(parameterFile(1), "[Decoder.Info]\nConnected = yes\n");
    EXPECT_EQ(value(0, "Decoder.Connected"), "no");
    EXPECT_EQ(value(1, "Decoder.Info.Connected"), "yes");
    EXPECT_EQ(value(0, "Decoder.Info.Connected"), "");
}

TEST_F(Params, AMissingParameterIsUnequalToEveryNonEmptyText) {
    conf("[A]\nempty =\n");
    const ParamWrapper params(0, true);
    for (const char* name : {"A.missing", "A.empty", ""}) {
        EXPECT_FALSE(params[name] == "yes");
        EXPECT_TRUE(params[name] != "no");
        EXPECT_TRUE(params[name] == "");
        EXPECT_FALSE(params[name] != "");
    }
    EXPECT_TRUE(params[nullptr] == nullptr);
}

TEST_F(Params, ComparisonIsExact) {
    conf("[A]\nx = yes\n");
    for (const bool fresh : {true, false}) {
        const ParamWrapper params(0, fresh);
        EXPECT_TRUE(params["A.x"] == "yes");
        EXPECT_TRUE(params["a.X"] == "yes");
        for (const char* other : {"Yes", "YES", "ye", "yess", "", static_cast<const char*>(nullptr)}) {
            EXPECT_FALSE(params["A.x"] == other);
            EXPECT_TRUE(params["A.x"] != other);
        }
    }
}

TEST_F(Params, NumbersAreDecimalFromTheFirstCharacter) {
    const struct {
        const char* text;
        int number;
    } cases[] = {{"", 0},
                 {"15", 15},
                 {"2x", 2},
                 {"x2", 0},
                 {"-7", -7},
                 {"+7", 7},
                 {"0x10", 0},
                 {"010", 10},
                 {"- 7", 0},
                 {"1 2", 1},
                 {"3.9", 3},
                 {"\"4\"", 0},
                 {"2147483647", INT_MAX},
                 {"2147483648", INT_MAX},
                 {"-2147483649", INT_MIN},
                 {"99999999999999999999999", INT_MAX},
                 {"-99999999999999999999999", INT_MIN}};
    for (const auto& [text, number] : cases) {
        conf(std::string("[A]\nx = ") + text + "\n");
        EXPECT_EQ(ParamWrapper(0, true)["A.x"].toInt(), number) << text;
    }
}

TEST_F(Params, AFreshHandleSeesChangesAndAnyOtherKeepsItsFirstValues) {
    conf("[A]\nx = 1\n");
    const ParamWrapper fresh(0, true);
    const ParamWrapper moment(0, false);
    const Param held = fresh["A.x"];
    conf("[A]\nx = 22\n");
    EXPECT_TRUE(fresh["A.x"] == "22");
    EXPECT_TRUE(held == "22");
    EXPECT_TRUE(moment["A.x"] == "1");
    EXPECT_EQ(moment["A.x"].toInt(), 1);
    std::remove(parameterFile(0).c_str());
    EXPECT_TRUE(fresh["A.x"] == "");
    EXPECT_TRUE(moment["A.x"] == "1");
}

TEST_F(Params, AChangeByAnotherProcessIsSeenAtTheNextAccess) {
    conf("[A]\nx = 1\n");
    const ParamWrapper params(0, true);
    for (int i = 10; i < 60; ++i) {
        ASSERT_EQ(inChild([i] {
                      ParamWrapper(0, true)["A.x"] = i;
                      return 0;
                  }),
                  0);
        ASSERT_EQ(params["A.x"].toInt(), i);
    }
}

// An editor that writes into the file itself, faster than the kernel's clock ticks, never changing its size.
TEST_F(Params, QuickChangesInPlaceAreSeenThoughTheFilesTimesDontMove) {
    conf("[A]\nx = 100\n");
    const ParamWrapper params(0, true);
    const int fd = open(parameterFile(0).c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    for (int i = 100; i < 500; ++i) {
        const std::string text = std::to_string(i);
        ASSERT_EQ(pwrite(fd, text.data(), text.size(), 8), 3);
        ASSERT_EQ(params["A.x"].toInt(), i);
    }
    close(fd);
}

TEST_F(Params, UnreadableLinesAreLoggedOncePerVersionWithoutTheirText) {
    conf("[A]\nPassword secret\nx = 1\n");
    const ParamWrapper params(0, true);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(params["A.x"] == "1");
    EXPECT_EQ(logCount(parameterFile(0) + ", line 2 can't be read: no '='"), 1U);
    EXPECT_EQ(logCount(""), 1U);
    conf("[A]\n\nPassword secret\nx = 2\n");
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(params["A.x"] == "2");
    EXPECT_EQ(logCount("line 3 can't be read"), 1U);
    EXPECT_EQ(logCount(""), 2U);
    EXPECT_EQ(logCount("secret"), 0U);
}

TEST_F(Params, SourcesComeInFileOrder) {
    conf("[Encoder.Gate]\nAddress = 10.0.0.1\n[Decoder]\n[Encoder.Yard]\nname = Our yard\nADDRESS = "
         "10.0.0.2:81\n");
    const auto sources = getSubGroups(0, "Encoder");
    ASSERT_EQ(sources.size(), 2U);
    EXPECT_EQ(sources[0].at("name"), "Gate");
    EXPECT_EQ(sources[1].at("Name"), "Our yard");
    EXPECT_EQ(sources[1].at("Address"), "10.0.0.2:81");
    EXPECT_TRUE(getSubGroups(1, "Encoder").empty());
    EXPECT_TRUE(getSubGroups(0, nullptr).empty());
}

TEST_F(Params, AListOfSourcesKeepsTheStateOfItsCall) {
    conf("[Encoder.Gate]\nAddress = 10.0.0.1\n[Encoder.Yard]\n[Camera.Roof]\n");
    const SubGroups before = getSubGroups(0, "Encoder");
    EXPECT_EQ(getSubGroups(0, "Camera").size(), 1U);
    EXPECT_EQ(getSubGroups(0, "encoder").size(), 2U) << "a group's name ignores case, too";
    conf("[Encoder.Pier]\nAddress = 10.0.0.3\n");
    const SubGroups after = getSubGroups(0, "Encoder");
    ASSERT_EQ(before.size(), 2U);
    EXPECT_EQ(before[0].at("Address"), "10.0.0.1");
    ASSERT_EQ(after.size(), 1U);
    EXPECT_EQ(after[0].at("Name"), "Pier");
    std::vector<std::string> names;
    for (SourceParams source : before)
        names.push_back(source["Name"]);
    EXPECT_EQ(names, (std::vector<std::string>{"Gate", "Yard"}));
    EXPECT_EQ(std::vector<SourceParams>(before).at(1), before[1]);
    EXPECT_TRUE(SubGroups().empty());
}

TEST_F(Params, ThereAreTwoFiles) {
    for (const int fileId : {-1, 2, INT_MAX, INT_MIN}) {
        clearLog();
        const ParamWrapper params(fileId, true);
        EXPECT_EQ(params["A.x"].toString(), "");
        params["A.x"] = "1";
        EXPECT_TRUE(getSubGroups(fileId, "Encoder").empty());
        EXPECT_EQ(userOpenAndLockParamFile(fileId, 1), -1);
        EXPECT_EQ(userCloseAndUnlockParamFile(fileId, 1), -1);
        EXPECT_GE(logCount("There is no parameter file " + std::to_string(fileId)), 1U);
        EXPECT_EQ(logCount(""), 5U);
    }
}

// Something else in the file's place: one log line with the reason, and an empty file.
class HostileParams : public Params {
protected:
    static void expectUnreadable(const std::string& reason) {
        const ParamWrapper params(0, true);
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(params["A.x"].toString(), "");
        EXPECT_EQ(logCount(parameterFile(0) + " can't be read: " + reason), 1U) << log();
        EXPECT_EQ(logCount(""), 1U);
    }
};

TEST_F(HostileParams, AFolder) {
    mkdir(file("/etc").c_str(), 0755);
    mkdir(file("/etc/decoder").c_str(), 0755);
    mkdir(parameterFile(0).c_str(), 0755);
    expectUnreadable("Is a directory");
}

TEST_F(HostileParams, APipeThatNobodyWrites) {
    conf("");
    std::remove(parameterFile(0).c_str());
    ASSERT_EQ(mkfifo(parameterFile(0).c_str(), 0644), 0);
    expectUnreadable("it is no regular file");
}

TEST_F(HostileParams, AHundredMegabytes) {
    conf("[A]\nx = 1\n");
    ASSERT_EQ(truncate(parameterFile(0).c_str(), 100 << 20), 0);
    expectUnreadable("it is bigger than 4 MiB");
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(usage.ru_maxrss, 64 << 10); // KiB
#endif
}

TEST_F(HostileParams, ALinkToNothing) {
    conf("");
    std::remove(parameterFile(0).c_str());
    ASSERT_EQ(symlink("/nowhere/at/all", parameterFile(0).c_str()), 0);
    expectUnreadable("it is a link to nothing");
}

TEST_F(HostileParams, ALinkToItself) {
    conf("");
    std::remove(parameterFile(0).c_str());
    ASSERT_EQ(symlink("decoder.conf", parameterFile(0).c_str()), 0);
    expectUnreadable("Too many levels of symbolic links");
}

TEST_F(HostileParams, ATemporaryObstacleIsForgotten) {
    conf("");
    std::remove(parameterFile(0).c_str());
    mkdir(parameterFile(0).c_str(), 0755);
    expectUnreadable("Is a directory");
    rmdir(parameterFile(0).c_str());
    conf("[A]\nx = 1\n");
    EXPECT_EQ(value(0, "A.x"), "1");
}

TEST_F(HostileParams, FourMegabytesOfTheShortestLines) {
    std::string text = "[A]\nx = 1\n";
    while (text.size() < (4 << 20) - 8)
        text += "a=\n";
    conf(text);
    EXPECT_EQ(value(0, "A.x"), "1");
    EXPECT_EQ(log(), "");
}

TEST_F(HostileParams, RandomBytes) {
    std::string text = "[A]\nx = 1\n";
    unsigned state = 1;
    for (int i = 0; i < 100000; ++i) {
        state = state * 1103515245 + 12345;
        text += static_cast<char>(state >> 16U);
    }
    conf(text);
    EXPECT_EQ(value(0, "A.x"), "1");
    EXPECT_LE(logCount(""), 51U);
    EXPECT_GE(logCount("more lines can't be read"), 1U);
}

// A process without a free descriptor keeps the values that it has read.
TEST_F(HostileParams, NoDescriptorLeft) {
    conf("[A]\nx = 1\n");
    EXPECT_EQ(inChild([] {
                  const ParamWrapper params(0, true);
                  if (!(params["A.x"] == "1"))
                      return 1;
                  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
                  conf("[A]\nx = 22\n");
                  setrlimit(RLIMIT_NOFILE, &none);
                  return params["A.x"] == "1" ? 0 : 2;
              }),
              0);
}

} // namespace
