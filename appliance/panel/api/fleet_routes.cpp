// The decoders of the site: what they do, commands to them, and where their panels are.
#include "appliance/panel/api/room.h"

#include <libcommon/text.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

constexpr std::size_t mostNames = 2000;

std::string sourceOf(const Body& body) {
    const json& source = body.value("source");
    return source.is_number_integer() ? source.dump() : body.text("source");
}

// A name that can be a level of a topic; otherwise a command would go somewhere else.
std::string levelOf(const std::string& name, const char* key) {
    if (name.empty() || name.front() == '_' || name.find_first_of("/+#") != std::string::npos ||
        libcommon::printable(name) != name)
        throw RequestRefused(400,
                             '"' + std::string(key) + "\" has a name that no decoder and no group can have");
    return name;
}

std::vector<std::string> decodersOf(const Body& body) {
    if (!body.has("decoders"))
        return {};
    const json& list = body.value("decoders");
    if (!list.is_array() || list.empty() || list.size() > mostNames)
        throw RequestRefused(400, "\"decoders\" has to be a list of names");
    std::vector<std::string> names;
    for (const json& name : list) {
        if (!name.is_string())
            throw RequestRefused(400, "\"decoders\" has to be a list of names");
        const std::string level = levelOf(name.get<std::string>(), "decoders");
        if (std::ranges::find(names, level) == names.end())
            names.push_back(level);
    }
    return names;
}

FleetCommand commandOf(const std::string& word, const Body& body) {
    FleetCommand command{word, sourceOf(body), "", "", decodersOf(body)};
    if (body.has("group"))
        command.group = levelOf(body.text("group"), "group");
    if (!command.group.empty() && !command.decoders.empty())
        throw RequestRefused(400, "either \"group\" or \"decoders\", not both");
    return command;
}

Response outcomeResponse(const std::vector<FleetOutcome>& outcomes) {
    json list = json::array();
    for (const FleetOutcome& outcome : outcomes)
        list.push_back({{"name", outcome.name},
                        {"done", outcome.done},
                        {"online", outcome.online},
                        {"text", outcome.text}});
    const auto done = std::ranges::count_if(outcomes, &FleetOutcome::done);
    const std::string sentence = "done by " + std::to_string(done) + " of " +
                                 std::to_string(outcomes.size()) +
                                 (outcomes.size() == 1 ? " decoder" : " decoders");
    return objectResponse({{"message", sentence}, {"decoders", list}});
}

FleetCommand selectOf(const Request& request) {
    return commandOf("select", Body(request, {"source", "group", "decoders"}));
}

FleetCommand alarmOf(const Request& request) {
    const Body body(request, {"source", "text", "group", "decoders"});
    FleetCommand command = commandOf("alarm", body);
    command.text = libcommon::printable(body.text("text", ""));
    return command;
}

void addCommand(Routes& routes, Room& room, const std::string& word, FleetCommand (*read)(const Request&)) {
    routes.add("POST", "/api/v1/fleet/" + word, Role::Operator,
               [&room, read](const Request& request, const Answer& answer) {
                   const FleetCommand command = read(request);
                   room.fleet->command(command, [answer](const std::vector<FleetOutcome>& outcomes) {
                       answer(outcomeResponse(outcomes));
                   });
               });
}

} // namespace

void addFleetRoutes(Routes& routes, Room& room) {
    routes.add("GET", "/api/v1/fleet", Role::Viewer, [&room](const Request&, const Answer& answer) {
        room.fleet->requireBroker();
        answer(objectResponse(room.fleet->now()));
    });
    addCommand(routes, room, "select", selectOf);
    addCommand(routes, room, "alarm", alarmOf);
    RouteRules rules;
    rules.least = Role::Viewer;
    rules.purpose = Purpose::Metrics;
    routes.add("GET", "/api/v1/targets", rules, [&room](const Request&, const Answer& answer) {
        answer(objectResponse(room.fleet->targets()));
    });
}

} // namespace panel
