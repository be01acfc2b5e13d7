// What an operator does with the decoder, and alarms from outside.
#include "appliance/commands/actions.h"
#include "appliance/commands/alarm_or_select.h"
#include "appliance/commands/connection.h"
#include "appliance/operating/button.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/muting.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/api/room.h"
#include "appliance/reporting/source_names.h"

#include <libcommon/log.h>
#include <libcommon/text.h>

#include <nlohmann/json.hpp>

namespace panel {
namespace {

struct Chosen {
    int index = 0;
    std::string name;
};

// A source by its number, its name or the beginning of its name; 404 when there is none.
Chosen chosenSource(Room& room, const std::string& wanted) {
    room.observer->refresh();
    const std::vector<std::string> names = sourceNames(room.observer->sources());
    try {
        const int index = resolveSource(wanted, names);
        return {index, names[static_cast<std::size_t>(index)]};
    } catch (const Refused& refused) {
        throw RequestRefused(404, refused.what());
    }
}

// "source" of a body: a number or a text.
Chosen chosenSource(Room& room, const Body& body) {
    const nlohmann::json& source = body.value("source");
    if (source.is_number_integer())
        return chosenSource(room, source.dump());
    return chosenSource(room, body.text("source"));
}

void select(Room& room, const Request& request, const Answer& answer) {
    const Chosen source = chosenSource(room, Body(request, {"source"}));
    room.observer->selected(source.index);
    answerCommand(room, room.commands, answer,
                  [source] { return messageResponse(selectSource(source.index, source.name)); });
}

// Shows the source with the text, in whatever mode the decoder is.
Response alarmResponse(const Chosen& source, const std::string& text) {
    const AlarmAnswer done = alarmOrSelect(source.index, source.name, libcommon::printable(text));
    return objectResponse({{"message", done.sentence}, {"as", done.selected ? "select" : "alarm"}});
}

void alarm(Room& room, const Request& request, const Answer& answer) {
    const Body body(request, {"source", "text"});
    const Chosen source = chosenSource(room, body);
    answerCommand(room, room.commands, answer,
                  [source, text = body.text("text", "")] { return alarmResponse(source, text); });
}

// A value of the hook: of the query, of a form, or of a JSON object. Devices send bodies of many types with their requests;
// those of other types are not looked at.
std::string hookValue(const Request& request, const std::string& key) {
    for (const Texts* texts : {&request.query, &request.form}) {
        if (const auto found = texts->find(key); found != texts->end())
            return found->second;
    }
    if (request.type != "application/json")
        return "";
    const Body body(request);
    if (!body.has(key))
        return "";
    return body.value(key).is_number_integer() ? body.value(key).dump() : body.text(key, "");
}

void alarmHook(Room& room, const Request& request, const Answer& answer) {
    const std::string wanted = hookValue(request, "source");
    const std::string text = hookValue(request, "text");
    if (wanted.empty())
        throw RequestRefused(400, "\"source\" is missing: the number or the name of a source");
    if (text.size() > Body::longestText)
        throw RequestRefused(400, "\"text\" is too long");
    const Chosen source = chosenSource(room, wanted);
    logmsg(6, "Alarm for %s from \"%s\".", libcommon::printable(source.name).c_str(),
           libcommon::printable(request.account).c_str());
    answerCommand(room, room.commands, answer, [source, text] { return alarmResponse(source, text); });
}

using Command = std::function<std::string()>;

// A command without arguments.
void addPlain(Routes& routes, Room& room, Worker& worker, const std::string& name, const Command& command) {
    routes.add("POST", "/api/v1/" + name, Role::Operator,
               [&room, &worker, command](const Request& request, const Answer& answer) {
                   const Body nothing(request, {});
                   answerCommand(room, worker, answer, [command] { return messageResponse(command()); });
               });
}

// A command whose body says more; `prepare` reads it.
void addPrepared(Routes& routes, Room& room, Worker& worker, const std::string& name,
                 const std::function<Command(const Request&)>& prepare) {
    routes.add("POST", "/api/v1/" + name, Role::Operator,
               [&room, &worker, prepare](const Request& request, const Answer& answer) {
                   answerCommand(room, worker, answer,
                                 [command = prepare(request)] { return messageResponse(command()); });
               });
}

void addPlainCommands(Routes& routes, Room& room) {
    addPlain(routes, room, room.commands, "lock", lockDecoder);
    addPlain(routes, room, room.commands, "reconnect", endLock);
    addPlain(routes, room, room.commands, "flush", flushDetections);
    addPlain(routes, room, room.longCommands, "connect", [] { return setConnected(true); });
    addPlain(routes, room, room.longCommands, "disconnect", [] { return setConnected(false); });
    addPlain(routes, room, room.longCommands, "apply", applyConfiguration);
}

void addPreparedCommands(Routes& routes, Room& room) {
    addPrepared(routes, room, room.commands, "button", [](const Request& request) -> Command {
        return [hold = Body(request, {"hold"}).flag("hold", false)] { return pressButton(hold); };
    });
    addPrepared(routes, room, room.commands, "volume", [](const Request& request) -> Command {
        const auto percent = static_cast<int>(Body(request, {"percent"}).number("percent", 0, 100));
        return [percent] { return setSoundVolume(percent); };
    });
    addPrepared(routes, room, room.commands, "mute", [](const Request& request) -> Command {
        return [muted = Body(request, {"muted"}).flag("muted")] { return muteSound(muted); };
    });
}

} // namespace

void answerCommand(Room& room, Worker& worker, const Answer& answer, std::function<Response()> command) {
    answerFrom(worker, answer, std::move(command), [&room] { room.observer->look(); });
}

void addControlRoutes(Routes& routes, Room& room) {
    routes.add("POST", "/api/v1/select", Role::Operator,
               [&room](const Request& request, const Answer& answer) { select(room, request, answer); });
    routes.add("POST", "/api/v1/alarm", Role::Operator,
               [&room](const Request& request, const Answer& answer) { alarm(room, request, answer); });
    addPlainCommands(routes, room);
    addPreparedCommands(routes, room);
    RouteRules hook;
    hook.least = Role::Operator;
    hook.purpose = Purpose::Alarm;
    hook.tokensOnly = true;
    hook.tokenInQuery = true;
    hook.mostBody = 1024 * 1024; // some cameras send a picture with it
    for (const char* method : {"GET", "POST"})
        routes.add(
            method, "/api/v1/hooks/alarm", hook,
            [&room](const Request& request, const Answer& answer) { alarmHook(room, request, answer); });
}

} // namespace panel
