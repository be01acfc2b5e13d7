// Adding, changing, ordering and removing sources.
#include "appliance/commands/camera_probe.h"
#include "appliance/commands/source_commands.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/api/parameter_changes.h"
#include "appliance/panel/api/room.h"

#include <libcommon/params.h>

#include <nlohmann/json.hpp>
#include <set>

namespace panel {
namespace {

using nlohmann::json;

CameraAccess cameraOf(const Body& body) {
    CameraAccess access;
    access.url = body.text("url");
    access.subUrl = body.text("subUrl", "");
    access.user = body.text("user", "");
    access.password = body.text("password", "");
    for (const std::string* text : {&access.url, &access.subUrl, &access.user, &access.password}) {
        if (text->find_first_of("\r\n") != std::string::npos)
            throw RequestRefused(400, "no text may have a line break");
    }
    return access;
}

int indexOfSource(const std::string& name) {
    int index = 0;
    for (SourceParams source : getSubGroups(0, "Encoder")) {
        if (source["Name"] == name)
            return index;
        ++index;
    }
    return -1;
}

void add(Room& room, const Request& request, const Answer& answer) {
    const Body body(request, {"name", "url", "subUrl", "user", "password", "unchecked", "apply"});
    const std::string name = body.text("name");
    const CameraAccess access = cameraOf(body);
    const AddOptions options{.unchecked = body.flag("unchecked", false), .apply = body.flag("apply", true)};
    answerCommand(room, room.longCommands, answer, [name, access, options] {
        const std::string sentence = addSource(name, access, options);
        Response response = messageResponse(sentence, 201);
        json object = json::parse(response.body);
        object["index"] = indexOfSource(name);
        return objectResponse(object, 201);
    });
}

void test(Room& room, const Request& request, const Answer& answer) {
    const Body body(request, {"url", "user", "password"});
    const CameraAccess access = cameraOf(body);
    answerCommand(room, room.longCommands, answer, [access] {
        return objectResponse(
            {{"video", probeCamera(access.url, access.user, access.password, true)["Video"]}});
    });
}

std::vector<int> orderOf(const Body& body, std::size_t count) {
    const json& order = body.value("order");
    std::vector<int> indices;
    std::set<int> seen;
    for (const json& one : order.is_array() ? order : json::array({nullptr})) {
        if (!one.is_number_integer() || one < 0 || one >= count)
            throw RequestRefused(400, "\"order\" has to be a list of the numbers of sources");
        if (!seen.insert(one.get<int>()).second)
            throw RequestRefused(400, "\"order\" has a number twice");
        indices.push_back(one.get<int>());
    }
    if (indices.empty())
        throw RequestRefused(400, "\"order\" has no number");
    return indices;
}

void order(Room& room, const Request& request, const Answer& answer) {
    const Body body(request, {"order", "apply"});
    room.observer->refresh();
    const std::vector<int> indices = orderOf(body, room.observer->sources().size());
    answerCommand(room, room.longCommands, answer, [indices, apply = body.flag("apply", true)] {
        return messageResponse(orderSources(indices, apply));
    });
}

void change(Room& room, const Request& request, const Answer& answer) {
    const Body body(request);
    room.observer->refresh();
    SourceChange change = readSourceChange(body, askedSource(room, request));
    answerCommand(room, room.longCommands, answer,
                  [change = std::move(change)] { return changeSource(change); });
}

void remove(Room& room, const Request& request, const Answer& answer) {
    const Body nothing(request, {});
    room.observer->refresh();
    const SourceReport& source = askedSource(room, request);
    answerCommand(room, room.longCommands, answer, [index = source.index, name = source.name] {
        return messageResponse(removeSource(index, name, true));
    });
}

} // namespace

void addSourceRoutes(Routes& routes, Room& room) {
    using Do = void (*)(Room&, const Request&, const Answer&);
    const auto route = [&](const char* method, const char* pattern, Do handler) {
        routes.add(method, pattern, Role::Admin,
                   [&room, handler](const Request& request, const Answer& answer) {
                       handler(room, request, answer);
                   });
    };
    route("POST", "/api/v1/sources", add);
    route("POST", "/api/v1/sources/test", test);
    route("POST", "/api/v1/sources/order", order);
    route("PATCH", "/api/v1/sources/{source}", change);
    route("DELETE", "/api/v1/sources/{source}", remove);
}

} // namespace panel
