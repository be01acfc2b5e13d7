#include "appliance/panel/api/parameter_changes.h"

#include "appliance/commands/connection.h"
#include "appliance/commands/source_commands.h"
#include "appliance/commands/source_effect.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/settings/secrets.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"
#include "appliance/settings/source_sections.h"
#include "appliance/settings/value_check.h"

#include <libcommon/parameter_lines.h>
#include <libcommon/text.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace panel {
namespace {

using nlohmann::json;

constexpr std::string_view connectedName = "Decoder.Connected";

// Somebody sent back what is shown in place of a password.
bool isPlaceholder(const std::string& name, const std::string& value) {
    const std::string inUrl = ':' + std::string(hiddenSecret) + '@';
    return (isSecretName(name) && value == hiddenSecret) || value.find(inUrl) != std::string::npos ||
           (value.find("://") != std::string::npos &&
            value.find('=' + std::string(hiddenSecret)) != std::string::npos);
}

std::string whyUnknown(const std::string& name) {
    const std::string nearest = nearestParameter(name);
    return "is not a parameter of this decoder" + (nearest.empty() ? "" : "; is it " + nearest + '?');
}

// The section of a source in a full name: "Encoder.Yard.Address" has "Yard"; "" for other parameters.
std::string sourceOf(const std::string& name) {
    const bool ofSource = name.size() > sourceGroup.size() &&
                          sameName(std::string_view(name).substr(0, sourceGroup.size()), sourceGroup);
    const std::size_t dot = name.rfind('.');
    return ofSource && dot >= sourceGroup.size() ? name.substr(sourceGroup.size(), dot - sourceGroup.size())
                                                 : "";
}

std::string whyNot(const ParameterValue& parameter, const std::vector<std::string>& sections) {
    const KnownParameter* known = findParameter(parameter.name);
    if (known == nullptr)
        return whyUnknown(parameter.name);
    if (parameterFile(parameter.name) == 1)
        return "is written by the decoder itself";
    const std::string section = sourceOf(parameter.name);
    if (!section.empty() &&
        std::ranges::none_of(sections, [&](const std::string& one) { return sameName(one, section); }))
        return "there is no source \"" + libcommon::printable(section) + '"';
    if (!parameter.value)
        return "";
    if (const std::string reason = whyNotValue(*parameter.value); !reason.empty())
        return reason;
    if (isPlaceholder(parameter.name, *parameter.value))
        return "has asterisks in place of the password: write the password itself";
    const std::optional<Mistake> mistake = valueMistake(*known, *parameter.value);
    return mistake ? mistake->reason + (mistake->remedy.empty() ? "" : "; " + mistake->remedy) : "";
}

// Changes the parameter file; false when it is as it was.
bool rewrite(const std::vector<ParameterValue>& values) {
    bool same = false;
    const bool written =
        libcommon::rewriteParameterFile(0, [&](const std::string& text) -> std::optional<std::string> {
            std::string changed = withValues(text, values);
            same = changed == text;
            return same ? std::nullopt : std::optional(std::move(changed));
        });
    if (!written && !same)
        throw Refused("the parameter file could not be written; the journal says why");
    return written;
}

unsigned readingsOf(const std::vector<ParameterValue>& values) {
    unsigned readings = 0;
    for (const ParameterValue& parameter : values) {
        if (const KnownParameter* known = findParameter(parameter.name))
            readings |= known->readings;
    }
    return readings;
}

// In the words of the table: "now", "at the next connect".
std::string effectOf(unsigned readings) {
    KnownParameter all{};
    all.readings = readings;
    return effectText(all);
}

std::string effectSentence(unsigned readings) {
    if (!isConnected() && (readings & AtStart) == 0)
        return "in force when the decoder connects";
    const bool waits = (readings & (AtPlayer | AtDetection | AtConnect)) != 0;
    return "in force " + effectOf(readings) + (waits ? "; Apply brings it into force at once" : "");
}

bool namesConnected(const std::vector<ParameterValue>& values) {
    return std::ranges::any_of(values,
                               [](const ParameterValue& one) { return sameName(one.name, connectedName); });
}

} // namespace

std::vector<std::string> configuredSections() {
    const std::string file = configurationFile();
    return access(file.c_str(), R_OK) == 0 ? sourceSectionNames(readParameterText(file))
                                           : std::vector<std::string>();
}

Mistakes mistakesIn(const std::vector<ParameterValue>& values, const std::vector<std::string>& sections) {
    Mistakes mistakes;
    for (const ParameterValue& parameter : values) {
        if (std::string reason = whyNot(parameter, sections); !reason.empty())
            mistakes[parameter.name] = std::move(reason);
    }
    return mistakes;
}

Response mistakesResponse(const Mistakes& mistakes) {
    const auto& [name, reason] = *mistakes.begin();
    json errors = json::object();
    for (const auto& [key, text] : mistakes)
        errors[key] = withoutSecrets(text);
    const std::string sentence = libcommon::printable(name) + ' ' + withoutSecrets(reason);
    return objectResponse({{"error", sentence}, {"errors", errors}}, 409);
}

std::string writeValues(const std::vector<ParameterValue>& values) {
    requireReadableConfiguration();
    if (!rewrite(values))
        return "nothing to change: this is what the configuration has";
    if (namesConnected(values)) {
        requireRunningAppliance();
        sendPlainEvent(EID_CONNECTPROPERTYCHANGED);
    }
    return "saved; " + effectSentence(readingsOf(values));
}

std::vector<ParameterValue> valuesOf(const json& object, const std::string& prefix) {
    std::vector<ParameterValue> values;
    for (const auto& [name, value] : object.items()) {
        if (!value.is_string() && !value.is_null())
            throw RequestRefused(400, '"' + name + "\" has to be a text, or null to clear it");
        const bool clears = value.is_null() || value == "";
        values.push_back({prefix + name, clears ? std::nullopt : std::optional(value.get<std::string>())});
    }
    return values;
}

SourceChange readSourceChange(const Body& body, const SourceReport& source) {
    SourceChange change;
    change.index = source.index;
    change.name = source.name;
    change.newName = body.has("name") ? body.text("name") : "";
    change.check = body.flag("check", false);
    change.apply = body.flag("apply", true);
    json values = body.object();
    for (const char* key : {"name", "check", "apply"})
        values.erase(key);
    for (ParameterValue& value : valuesOf(values))
        change.values.emplace_back(std::move(value.name), std::move(value.value));
    if (change.newName.empty() && change.values.empty())
        throw RequestRefused(400, "there is nothing to change in this request");
    return change;
}

namespace {

// The reasons against the change, by the keys of the request.
Mistakes mistakesIn(const SourceChange& change, const std::string& section,
                    const std::vector<std::string>& sections) {
    Mistakes mistakes;
    const std::string prefix = std::string(sourceGroup) + section + '.';
    for (const auto& [key, value] : change.values) {
        const bool simple = !key.empty() && key.find('.') == std::string::npos;
        const std::string reason =
            simple ? whyNot({prefix + key, value}, sections) : "is not a parameter of a source";
        if (!reason.empty())
            mistakes[key] = reason;
    }
    if (change.newName.empty() || sameName(change.newName, section))
        return mistakes;
    if (const std::string reason = whyNotSourceName(change.newName); !reason.empty())
        mistakes["name"] = reason;
    else if (std::ranges::any_of(sections,
                                 [&](const std::string& one) { return sameName(one, change.newName); }))
        mistakes["name"] = "is the name of another source";
    return mistakes;
}

std::string sectionOf(const SourceChange& change, const std::vector<std::string>& sections) {
    const std::vector<SourceParams> configured = getSubGroups(0, "Encoder");
    const auto index = static_cast<std::size_t>(change.index);
    if (index >= sections.size() || index >= configured.size())
        throw Refused("the sources have changed meanwhile: try again");
    SourceParams source = configured[index];
    if (source["Name"] != change.name)
        throw Refused("the sources have changed meanwhile: try again");
    return sections[index];
}

} // namespace

Response changeSource(const SourceChange& change) {
    requireReadableConfiguration();
    const std::vector<std::string> sections = configuredSections();
    const std::string section = sectionOf(change, sections);
    if (const Mistakes mistakes = mistakesIn(change, section, sections); !mistakes.empty())
        return mistakesResponse(mistakes);
    if (change.check)
        return messageResponse("nothing is wrong with it");
    std::vector<ParameterValue> values;
    for (const auto& [key, value] : change.values)
        values.push_back({std::string(sourceGroup) + section + '.' + key, value});
    const DecoderBefore before = lookAtDecoder();
    const bool written = !values.empty() && rewrite(values);
    if (!change.newName.empty() && change.newName != section)
        return messageResponse(renameSource(change.index, change.name, change.newName, change.apply));
    if (!written)
        return messageResponse("nothing to change: this is what the configuration has");
    const unsigned readings = readingsOf(values);
    const bool waits = (readings & (AtPlayer | AtDetection | AtConnect)) != 0;
    return messageResponse(
        "saved; " + (waits ? applyChange(before, before.shown, change.apply) : effectSentence(readings)));
}

} // namespace panel
