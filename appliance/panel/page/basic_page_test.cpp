#include "appliance/panel/page/basic_page.h"

#include "appliance/panel/web/request.h"
#include "appliance/panel/web/router.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

const json playing{{"supervisorPid", 5}, {"connected", true}, {"currentSource", 0}, {"sourceName", "Yard"}};
const json twoSources{{"sources", {{{"index", 0}, {"name", "Yard"}}, {{"index", 1}, {"name", "Roof"}}}}};

// A router whose API answers what the tests say; it notes what was selected.
struct Panel {
    Router router;
    json status = playing;
    json sources = twoSources;
    int selectStatus = 200;
    json selectAnswer = {{"message", "the decoder shows Roof"}};
    std::string selected;

    Panel() {
        router.add("GET", "/api/v1/status", Role::Viewer,
                   [this](const Request&, const Answer& answer) { answer(jsonResponse(status.dump())); });
        router.add("GET", "/api/v1/sources", Role::Viewer,
                   [this](const Request&, const Answer& answer) { answer(jsonResponse(sources.dump())); });
        router.add("POST", "/api/v1/select", Role::Operator,
                   [this](const Request& request, const Answer& answer) {
                       selected = request.body;
                       answer(jsonResponse(selectAnswer.dump(), selectStatus));
                   });
        addBasicPage(router);
    }

    Response ask(Request request) {
        Response got;
        router.find(request.method, request.path).route->handler(request, [&got](Response response) {
            got = std::move(response);
        });
        return got;
    }
    Response get(Role role) {
        Request request;
        request.method = "GET";
        request.path = "/basic";
        request.role = role;
        request.csrf = "token";
        return ask(request);
    }
    Response select(const std::string& source) {
        Request request;
        request.method = "POST";
        request.path = "/basic/select";
        request.form = {{"source", source}};
        request.role = Role::Operator;
        return ask(request);
    }
};

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(BasicPage, StrangersGetTheLogInForm) {
    Panel panel;
    const Response response = panel.get(Role::None);
    EXPECT_TRUE(has(response.body, "action=\"/login\""));
    EXPECT_FALSE(has(response.body, "Yard"));
}

TEST(BasicPage, TheLogInFormHasTheReasonOfARefusal) {
    EXPECT_TRUE(has(basicLogIn("wrong"), "password is wrong"));
    EXPECT_TRUE(has(basicLogIn("wait"), "too many tries"));
    EXPECT_FALSE(has(basicLogIn("<b>"), "<b>"));
}

TEST(BasicPage, OperatorsGetAButtonForEachSource) {
    Panel panel;
    const Response response = panel.get(Role::Operator);
    EXPECT_EQ(response.type, "text/html; charset=utf-8");
    EXPECT_TRUE(has(response.body, "The decoder shows Yard."));
    EXPECT_TRUE(has(response.body, "<button>Show Roof</button>"));
    EXPECT_TRUE(has(response.body, "name=\"csrf\" value=\"token\""));
}

TEST(BasicPage, ViewersGetNoButtons) {
    Panel panel;
    EXPECT_FALSE(has(panel.get(Role::Viewer).body, "<button"));
}

TEST(BasicPage, SelectsAndSaysWhatHappens) {
    Panel panel;
    const Response response = panel.select("1");
    EXPECT_EQ(json::parse(panel.selected), (json{{"source", 1}}));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(has(response.body, "the decoder shows Roof"));
}

TEST(BasicPage, ARefusalIsShownWithItsReason) {
    Panel panel;
    panel.selectStatus = 409;
    panel.selectAnswer = {{"error", "no decoder is running"}};
    const Response response = panel.select("1");
    EXPECT_EQ(response.status, 409);
    EXPECT_TRUE(has(response.body, "no decoder is running"));
}

TEST(BasicPage, OnlyNumbersAreSources) {
    for (const char* wrong : {"", "Yard", "-1", "1x", "99999999999999999999"}) {
        Panel panel;
        EXPECT_EQ(panel.select(wrong).status, 400) << wrong;
        EXPECT_EQ(panel.selected, "") << wrong;
    }
}

TEST(BasicPage, NamesAndErrorsAreEscaped) {
    Panel panel;
    panel.sources["sources"][0]["name"] = "<script>alert(1)</script>";
    panel.sources["sources"][1]["error"] = {{"code", 32}, {"text", "\"><img src=x onerror='x'>"}};
    panel.status["sourceName"] = "a & b";
    const std::string body = panel.get(Role::Admin).body;
    EXPECT_FALSE(has(body, "<script>"));
    EXPECT_FALSE(has(body, "<img src=x"));
    EXPECT_TRUE(has(body, "&lt;script&gt;"));
    EXPECT_TRUE(has(body, "a &amp; b"));
}

TEST(BasicPage, SaysWhenTheStateIsNotKnown) {
    EXPECT_TRUE(has(basicDocument(json::object(), json::object(), {}, ""), "state is not known"));
    EXPECT_TRUE(
        has(basicDocument(json{{"supervisorPid", -1}}, json::array(), {}, ""), "No decoder is running."));
    EXPECT_TRUE(has(basicDocument(json{{"supervisorPid", 3}, {"connected", false}}, nullptr, {}, ""),
                    "is disconnected."));
}

} // namespace
} // namespace panel
