#include "appliance/operating/operating_fixture.h"
#include "appliance/panel/api/api.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using testing::HasSubstr;

class FleetRoutes : public OperatingTest {
protected:
    FleetRoutes() { setenv("LIBCOMMON_LOG", (root / "log").c_str(), 1); }

    static Response ask(const Router& router, const std::string& method, const std::string& path,
                        const std::string& body = "") {
        Request request;
        request.method = method;
        request.path = path;
        request.body = body;
        request.type = "application/json";
        Response got;
        got.status = 0;
        router.find(method, path).route->handler(request, [&](Response response) {
            got = std::move(response);
        });
        return got;
    }

    Router router;
    EventStreams streams;
};

TEST_F(FleetRoutes, WithoutABrokerEachSaysWhy) {
    const Api api(router, streams);
    for (const char* path : {"/api/v1/fleet", "/api/v1/targets"}) {
        const Response response = ask(router, "GET", path);
        EXPECT_EQ(response.status, 409) << path;
        EXPECT_THAT(response.body, HasSubstr("Mqtt.Broker is not set"));
    }
    for (const char* path : {"/api/v1/fleet/select", "/api/v1/fleet/alarm"})
        EXPECT_EQ(ask(router, "POST", path, R"({"source": "Yard"})").status, 409) << path;
}

TEST_F(FleetRoutes, RefuseWhatIsNoCommand) {
    const Api api(router, streams);
    for (const char* body :
         {"{}", R"({"source": ""})", R"({"source": "Yard", "text": "x"})",
          R"({"source": "Yard", "group": "a/b"})", R"({"source": "Yard", "group": "#"})",
          R"({"source": "Yard", "decoders": []})", R"({"source": "Yard", "decoders": ["_all"]})",
          R"({"source": "Yard", "decoders": [1]})", R"({"source": "Yard", "decoders": "hall"})",
          R"({"source": "Yard", "group": "a", "decoders": ["b"]})"})
        EXPECT_EQ(ask(router, "POST", "/api/v1/fleet/select", body).status, 400) << body;
}

} // namespace
} // namespace panel
