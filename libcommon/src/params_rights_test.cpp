// Two users write the same parameter files: root with the control command, and the appliance's own user.
#include <libcommon/params.h>

#include "libcommon/src/appliance_fixture.h"

#include <fstream>
#include <grp.h>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t user = 63117;
constexpr gid_t group = 63118;

class ParamsRights : public ApplianceTest {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can become another user";
        write(file("/etc/decoder/x"), "");
        write(file("/run/decoder/x"), "");
        chmod(file("").c_str(), 0755);
        for (const char* folder : {"/etc/decoder", "/run/decoder"}) {
            ASSERT_EQ(chown(file(folder).c_str(), user, group), 0);
            ASSERT_EQ(chmod(file(folder).c_str(), 0770), 0);
        }
    }

    static struct stat stateOf(const std::string& path) {
        struct stat state {};
        EXPECT_EQ(stat(path.c_str(), &state), 0) << path;
        return state;
    }

    static bool userSets(int fileId, const char* name, const char* value) {
        const int result = asUser(user, group, {}, [&] {
            ParamWrapper(fileId, true)[name] = value;
            return ParamWrapper(fileId, true)[name] == value ? 0 : 1;
        });
        return result == 0;
    }
};

TEST_F(ParamsRights, TheAppliancesUserCanWriteWhatRootMade) {
    for (const int fileId : {0, 1}) {
        ParamWrapper(fileId, true)["Decoder.Connected"] =
            "yes"; // the first write makes the lock and the file
        EXPECT_TRUE(userSets(fileId, "Decoder.Connected", "no"));
    }
    EXPECT_EQ(log(), "");
    const struct stat lock = stateOf(file("/etc/decoder/.decoder.conf.lock"));
    EXPECT_EQ(lock.st_gid, group);
    EXPECT_EQ(lock.st_mode & 07777, 0660U);
    EXPECT_EQ(stateOf(parameterFile(0)).st_gid, group);
    EXPECT_EQ(stateOf(parameterFile(0)).st_mode & 07777, 0660U);
    EXPECT_EQ(stateOf(parameterFile(1)).st_mode & 07777, 0664U);
}

TEST_F(ParamsRights, ALockThatOnlyRootCouldOpenIsRepairedByRoot) {
    write(file("/etc/decoder/.decoder.conf.lock"), "");
    ASSERT_EQ(chmod(file("/etc/decoder/.decoder.conf.lock").c_str(), 0640), 0);
    write(file("/log"), "");
    chmod(file("/log").c_str(), 0666); // the other user's lines go there, too
    EXPECT_FALSE(userSets(0, "Decoder.Connected", "no"));
    EXPECT_EQ(logCount("its lock can't be taken; the value is lost. (errno=13 Permission denied)"), 1U)
        << log();
    ParamWrapper(0, true)["Decoder.Connected"] = "yes";
    EXPECT_TRUE(userSets(0, "Decoder.Connected", "no"));
}

TEST_F(ParamsRights, AFileThatRootReplacesKeepsOwnerGroupAndMode) {
    write(parameterFile(0), "[Decoder]\nConnected = yes\n");
    ASSERT_EQ(chown(parameterFile(0).c_str(), user, group), 0);
    ASSERT_EQ(chmod(parameterFile(0).c_str(), 0640), 0);
    ParamWrapper(0, true)["Decoder.SequenceMode"] = "manual";
    const struct stat state = stateOf(parameterFile(0));
    EXPECT_EQ(state.st_uid, user);
    EXPECT_EQ(state.st_gid, group);
    EXPECT_EQ(state.st_mode & 07777, 0640U);
    EXPECT_TRUE(userSets(0, "Decoder.Connected", "no"));
    EXPECT_EQ(log(), "");
}

// As the service manager of a user's session starts a program: in a name space in which only the user has a number.
bool enterUserNamespace() {
    const auto put = [](const char* file, const std::string& text) { std::ofstream(file) << text; };
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER) != 0)
        return false;
    put("/proc/self/setgroups", "deny");
    put("/proc/self/uid_map", uid + " " + uid + " 1");
    put("/proc/self/gid_map", gid + " " + gid + " 1");
    return true;
}

TEST_F(ParamsRights, AMemberOfTheGroupWithoutNumbersForOthersKeepsTheGroup) {
    constexpr uid_t member = 63119;
    constexpr int refused = 77;
    for (const char* folder : {"/etc/decoder", "/run/decoder"})
        ASSERT_EQ(chmod(file(folder).c_str(), 02770), 0);
    for (const int fileId : {0, 1})
        ASSERT_TRUE(userSets(fileId, "Decoder.Connected", "no"));
    const int result = inChild([&] {
        if (setgroups(1, &group) != 0 || setgid(member) != 0 || setuid(member) != 0)
            return 1;
        prctl(PR_SET_DUMPABLE, 1); // or /proc/self would be root's
        if (!enterUserNamespace())
            return refused;
        for (const int fileId : {0, 1})
            ParamWrapper(fileId, true)["Decoder.Connected"] = "yes";
        return 0;
    });
    if (result == refused)
        GTEST_SKIP() << "this kernel gives an ordinary user no name space of users";
    ASSERT_EQ(result, 0);
    for (const int fileId : {0, 1}) {
        EXPECT_EQ(stateOf(parameterFile(fileId)).st_gid, group);
        EXPECT_EQ(stateOf(parameterFile(fileId)).st_uid, member);
        EXPECT_TRUE(userSets(fileId, "Decoder.SequenceMode", "manual"));
        EXPECT_EQ(ParamWrapper(fileId, false)["Decoder.Connected"].toString(), "yes");
    }
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsRights, OthersCanNeitherReadNorHoldTheLock) {
    ParamWrapper(0, true)["Decoder.Connected"] = "yes";
    chmod(file("/etc/decoder").c_str(), 0777);
    EXPECT_EQ(asUser(63119, 63119, {},
                     [] {
                         return access(file("/etc/decoder/.decoder.conf.lock").c_str(), R_OK) != 0 &&
                                        access(parameterFile(0).c_str(), R_OK) != 0
                                    ? 0
                                    : 1;
                     }),
              0);
}

} // namespace
