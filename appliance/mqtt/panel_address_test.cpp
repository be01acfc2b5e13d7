#include "appliance/mqtt/panel_address.h"
#include "appliance/operating/operating_fixture.h"

#include <unistd.h>

namespace {

class PanelAddress : public OperatingTest {
protected:
    std::string with(const std::string& section) const {
        configure("[Panel]\n" + section);
        return mqtt::panelAddress();
    }
};

TEST_F(PanelAddress, IsNotToldWhileOnlyThisMachineReachesIt) {
    EXPECT_EQ(with(""), "");
    EXPECT_EQ(with("Address = 127.0.0.1\nHosts = hall.example\n"), "");
    EXPECT_EQ(with("Address = ::1\n"), "");
}

TEST_F(PanelAddress, HasTheNameThatOthersUse) {
    EXPECT_EQ(with("Address = 0.0.0.0\nHosts = hall.example, hall\n"), "https://hall.example:8088");
    EXPECT_EQ(with("Address = 0.0.0.0\nHosts = hall.example:443\nPort = 9000\n"),
              "https://hall.example:9000");
    EXPECT_EQ(with("Address = 192.0.2.7\nTLS = no\n"), "http://192.0.2.7:8088");
    EXPECT_EQ(with("Address = 2001:db8::7\n"), "https://[2001:db8::7]:8088");
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    EXPECT_EQ(with("Address = ::\n"), "https://" + std::string(name) + ":8088");
}

} // namespace
