// Parameters and the check of a whole configuration.
#include "appliance/panel/api/parameter_changes.h"
#include "appliance/panel/api/parameter_texts.h"
#include "appliance/panel/api/room.h"
#include "appliance/settings/secrets.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"

#include <libcommon/params.h>

#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

const char* kindName(ValueKind kind) {
    switch (kind) {
    case ValueKind::YesNo:
        return "yesNo";
    case ValueKind::Number:
        return "number";
    case ValueKind::Choice:
        return "choice";
    case ValueKind::ChoiceOrNumber:
        return "choiceOrNumber";
    case ValueKind::ChoiceOrSize:
        return "choiceOrSize";
    case ValueKind::Address:
        return "address";
    case ValueKind::Default:
        return "default";
    case ValueKind::Broker:
    case ValueKind::OwnTopic:
    case ValueKind::Text:
        return "text";
    }
    return "text";
}

std::string shownValue(const std::string& name, const std::string& value) {
    return isSecretName(name) && !value.empty() ? std::string(hiddenSecret) : withoutSecrets(value);
}

json describe(const KnownParameter& parameter) {
    const bool numbers = parameter.kind == ValueKind::Number || parameter.kind == ValueKind::ChoiceOrNumber;
    return {{"name", parameter.name},
            {"section", parameter.name.substr(0, parameter.name.find('.'))},
            {"values", takenText(parameter)},
            {"kind", kindName(parameter.kind)},
            {"words", valueWords(parameter)},
            {"least", numbers ? json(parameter.least) : json()},
            {"most", numbers ? json(parameter.most) : json()},
            {"read", readingsText(parameter)},
            {"effect", effectText(parameter)},
            {"secret", isSecretName(parameter.name)},
            {"description", parameterText(parameter.name)}};
}

// The decoder's parameters with their values.
json decoderList() {
    const ParamWrapper configuration(0, false);
    json list = json::array();
    for (const KnownParameter& parameter : decoderParameters()) {
        json entry = describe(parameter);
        const std::string name(parameter.name);
        const std::string value = configuration[name.c_str()].toString();
        entry["value"] = shownValue(name, value);
        entry["set"] = !value.empty();
        list.push_back(std::move(entry));
    }
    return list;
}

// The keys of a source, without values.
json sourceList() {
    json list = json::array();
    for (const KnownParameter& parameter : sourceParameters()) {
        json entry = describe(parameter);
        entry["section"] = "Encoder";
        list.push_back(std::move(entry));
    }
    return list;
}

void list(const Request& request, const Answer& answer) {
    const auto of = request.query.find("of");
    if (of != request.query.end() && of->second != "sources" && of->second != "decoder")
        throw RequestRefused(400, "\"of\" is \"decoder\" or \"sources\"");
    const bool sources = of != request.query.end() && of->second == "sources";
    answer(objectResponse(sources ? sourceList() : decoderList()));
}

const std::string& namedParameter(const Request& request) {
    const std::string& name = request.parts.at("name");
    if (findParameter(name) != nullptr)
        return name;
    const std::string nearest = nearestParameter(name);
    throw RequestRefused(404, "this is not a parameter of this decoder" +
                                  (nearest.empty() ? std::string() : "; is it " + nearest + '?'));
}

void read(const Request& request, const Answer& answer) {
    const std::string& name = namedParameter(request);
    const std::string value = ParamWrapper(parameterFile(name), false)[name.c_str()].toString();
    json object{{"name", name}, {"value", shownValue(name, value)}, {"set", !value.empty()}};
    answer(objectResponse(object));
}

Response writeChecked(const std::vector<ParameterValue>& values, bool check) {
    if (const Mistakes mistakes = mistakesIn(values, configuredSections()); !mistakes.empty())
        return mistakesResponse(mistakes);
    return messageResponse(check ? "nothing is wrong with it" : writeValues(values));
}

void write(Room& room, const Request& request, const Answer& answer) {
    const std::string& name = namedParameter(request);
    const Body body(request, {"value"});
    if (!body.value("value").is_string())
        throw RequestRefused(400, "\"value\" has to be a text");
    const std::vector<ParameterValue> values = valuesOf({{name, body.value("value")}});
    answerCommand(room, room.commands, answer, [values] { return writeChecked(values, false); });
}

void clear(Room& room, const Request& request, const Answer& answer) {
    const Body nothing(request, {});
    const std::vector<ParameterValue> values{{namedParameter(request), std::nullopt}};
    answerCommand(room, room.commands, answer, [values] { return writeChecked(values, false); });
}

void writeSeveral(Room& room, const Request& request, const Answer& answer) {
    const Body body(request, {"values", "check"});
    const json& object = body.value("values");
    if (!object.is_object() || object.empty())
        throw RequestRefused(400, "\"values\" has to be an object with names and values");
    answerCommand(room, room.commands, answer,
                  [values = valuesOf(object), check = body.flag("check", false)] {
                      return writeChecked(values, check);
                  });
}

void check(Room& room, const Request& request, const Answer& answer) {
    if (request.type != "text/plain")
        throw RequestRefused(415, "the body has to be the text of a configuration, with the type text/plain");
    answerCommand(room, room.commands, answer, [text = request.body] {
        json found = findingsJson("configuration", findMistakes(text));
        hideSecrets(found);
        return objectResponse(found);
    });
}

} // namespace

void addParameterRoutes(Routes& routes, Room& room) {
    using Do = void (*)(Room&, const Request&, const Answer&);
    const auto with = [&room](Do handler) {
        return [&room, handler](const Request& request, const Answer& answer) {
            handler(room, request, answer);
        };
    };
    routes.add("GET", "/api/v1/parameters", Role::Operator, list);
    routes.add("PATCH", "/api/v1/parameters", Role::Admin, with(writeSeveral));
    routes.add("GET", "/api/v1/parameters/{name}", Role::Admin, read);
    routes.add("PUT", "/api/v1/parameters/{name}", Role::Admin, with(write));
    routes.add("DELETE", "/api/v1/parameters/{name}", Role::Admin, with(clear));
    RouteRules rules;
    rules.least = Role::Admin;
    rules.mostBody = 1024 * 1024;
    routes.add("POST", "/api/v1/configuration/check", rules, with(check));
}

} // namespace panel
