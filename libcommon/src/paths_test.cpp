#include <libcommon/paths.h>

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

TEST(Paths, WithoutTheVariableTheRootIsEmpty) {
    unsetenv("APPLIANCE_ROOT");
    EXPECT_EQ(libcommon::applianceRoot(), "");
    EXPECT_EQ(libcommon::appliancePath("/etc/decoder/decoder.conf"), "/etc/decoder/decoder.conf");
}

TEST(Paths, TheRootIsPutBeforeEveryPath) {
    setenv("APPLIANCE_ROOT", "/tmp/appliance one", 1);
    EXPECT_EQ(libcommon::applianceRoot(), "/tmp/appliance one");
    EXPECT_EQ(libcommon::appliancePath("/run/decoder"), "/tmp/appliance one/run/decoder");
}

TEST(Paths, TheRootIsReadOnce) {
    setenv("APPLIANCE_ROOT", "/first", 1);
    EXPECT_EQ(libcommon::applianceRoot(), "/first");
    setenv("APPLIANCE_ROOT", "/second", 1);
    EXPECT_EQ(libcommon::appliancePath("/x"), "/first/x");
}

} // namespace
