#include "appliance/operating/operating_fixture.h"
#include "appliance/panel/api/api.h"
#include "appliance/panel/api/embedded.h"
#include "appliance/panel/api/parameter_texts.h"
#include "appliance/settings/known_parameters.h"

#include <nlohmann/json.hpp>
#include <set>

namespace panel {
namespace {

using nlohmann::json;

// These belong to the server and to the page.
const std::set<std::string> ofTheServer{"get /api/v1/session", "get /api/v1/events"};

std::set<std::string> documentedRoutes(const json& document) {
    std::set<std::string> routes;
    for (const auto& [path, methods] : document["paths"].items()) {
        for (const auto& [method, operation] : methods.items())
            routes.insert(method + ' ' + path);
    }
    return routes;
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class ApiDocument : public OperatingTest {
protected:
    ApiDocument() { setenv("LIBCOMMON_LOG", (root / "log").c_str(), 1); }
};

TEST_F(ApiDocument, HasEachRouteAndNoOther) {
    Router router;
    EventStreams streams;
    const Api api(router, streams);
    const json document = json::parse(openApiDocument());
    std::set<std::string> routes = ofTheServer;
    for (const Router::Route& route : router.routes())
        routes.insert(lower(route.method) + ' ' + route.pattern);
    EXPECT_EQ(documentedRoutes(document), routes);
}

TEST_F(ApiDocument, SaysTheRoleOfEachRoute) {
    Router router;
    EventStreams streams;
    const Api api(router, streams);
    const json document = json::parse(openApiDocument());
    for (const Router::Route& route : router.routes()) {
        const json& operation = document["paths"][route.pattern][lower(route.method)];
        const bool hook = route.rules.purpose == Purpose::Alarm;
        EXPECT_EQ(operation["x-role"], hook ? "alarm" : roleName(route.rules.least)) << route.pattern;
        EXPECT_EQ(route.rules.tokenInQuery, hook) << route.pattern;
        EXPECT_TRUE(route.method == "GET" || hook || route.rules.least >= Role::Operator) << route.pattern;
    }
}

TEST_F(ApiDocument, EachReferenceLeadsSomewhere) {
    const json document = json::parse(openApiDocument());
    std::string text = document.dump();
    const std::string mark = "\"$ref\":\"#/components/schemas/";
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos;) {
        at += mark.size();
        const std::string name = text.substr(at, text.find('"', at) - at);
        EXPECT_TRUE(document["components"]["schemas"].contains(name)) << name;
    }
}

TEST_F(ApiDocument, EachParameterHasADescription) {
    for (const KnownParameter& parameter : decoderParameters())
        EXPECT_NE(parameterText(parameter.name), "") << parameter.name;
    for (const KnownParameter& parameter : sourceParameters())
        EXPECT_NE(parameterText(parameter.name), "") << parameter.name;
    EXPECT_EQ(parameterText("Decoder.Nothing"), "");
    EXPECT_EQ(parameterText("Warm").find('['), std::string::npos) << parameterText("Warm");
}

} // namespace
} // namespace panel
