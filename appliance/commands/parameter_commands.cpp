#include "appliance/commands/parameter_commands.h"

#include "appliance/commands/connection.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"
#include "appliance/settings/value_check.h"

#include <libcommon/events.h>
#include <libcommon/parameter_lines.h>
#include <libcommon/params.h>
#include <libcommon/text.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

constexpr std::string_view connectedName = "Decoder.Connected";
constexpr const char* byForce = " (--force writes it anyway)";

std::string unknownName(const std::string& name) {
    const std::string nearest = nearestParameter(name);
    return name + " is not a parameter of this decoder" + (nearest.empty() ? "" : "; is it " + nearest + '?');
}

void requireKnown(const std::string& name, const std::string& value) {
    const KnownParameter* known = findParameter(name);
    if (known == nullptr) {
        throw Refused(unknownName(name) + byForce);
    }
    if (parameterFile(name) == 1) {
        throw Refused(name + " is written by the decoder itself" + byForce);
    }
    if (const std::optional<Mistake> mistake = valueMistake(*known, value)) {
        throw Refused(name + ' ' + mistake->reason + (mistake->remedy.empty() ? "" : "; " + mistake->remedy) +
                      byForce);
    }
}

// When the value that was just written takes effect.
std::string effectOf(const std::string& name) {
    const KnownParameter* known = findParameter(name);
    if (known == nullptr) {
        return "no program of the decoder reads it";
    }
    if (libcommon::eventQueueOwner() < 0) {
        return "in force when the decoder starts";
    }
    if ((known->readings & AtStart) == 0 && !isConnected()) {
        return "in force when the decoder connects";
    }
    const bool waits = (known->readings & (AtPlayer | AtDetection | AtConnect)) != 0;
    return "in force " + effectText(*known) + (waits ? " (decoderctl apply: at once)" : "");
}

// The sections of the configured sources, as they are written, in file order.
// The sections of a group, such as "Encoder.", in file order.
std::vector<std::string> sectionsOf(std::string_view group) {
    std::vector<std::string> sections;
    const std::string file = configurationFile();
    const std::string text = access(file.c_str(), R_OK) == 0 ? readParameterText(file) : "";
    for (const libcommon::ParameterLine& line : libcommon::parameterLines(text)) {
        const bool ofGroup = line.kind == libcommon::ParameterLine::Kind::Section &&
                             line.section.size() > group.size() &&
                             sameName(std::string_view(line.section).substr(0, group.size()), group);
        if (ofGroup && std::ranges::none_of(sections, [&](const std::string& known) {
                return sameName(known, line.section);
            })) {
            sections.push_back(line.section);
        }
    }
    return sections;
}

struct Row {
    std::string name;
    const KnownParameter* parameter;
};

void addSections(std::vector<Row>& rows, std::string_view group, std::span<const KnownParameter> keys) {
    for (const std::string& section : sectionsOf(group)) {
        for (const KnownParameter& parameter : keys) {
            rows.push_back({section + '.' + std::string(parameter.name), &parameter});
        }
    }
}

std::vector<Row> rows() {
    std::vector<Row> all;
    for (const KnownParameter& parameter : decoderParameters()) {
        all.push_back({std::string(parameter.name), &parameter});
    }
    addSections(all, sourceGroup, sourceParameters());
    addSections(all, ruleGroup, ruleParameters());
    return all;
}

} // namespace

void writeParameterChecked(const std::string& name, const std::string& value) {
    ParamWrapper parameters(parameterFile(name), true);
    parameters[name.c_str()] = value.c_str();
    if (parameters[name.c_str()].toString() != value) {
        throw Refused(name + " could not be written");
    }
}

std::string getParameter(const std::string& name) {
    requireReadableConfiguration();
    std::string value = ParamWrapper(parameterFile(name), false)[name.c_str()].toString();
    if (value.empty()) {
        throw Refused(findParameter(name) == nullptr ? unknownName(name) : name + " is not set");
    }
    return value;
}

std::string setParameter(const std::string& name, const std::string& value, bool force) {
    if (!force) {
        requireKnown(name, value);
    }
    if (sameName(name, connectedName) && (value == "yes" || value == "no")) {
        return setConnected(value == "yes");
    }
    writeParameterChecked(name, value);
    return name + ": " + effectOf(name);
}

std::vector<std::string> parameterNames() {
    std::vector<std::string> names;
    for (Row& row : rows()) {
        names.push_back(std::move(row.name));
    }
    for (const KnownParameter& parameter : infoParameters()) {
        names.emplace_back(parameter.name);
    }
    return names;
}

std::string parametersText() {
    const std::vector<Row> all = rows();
    std::size_t width = 0;
    for (const Row& row : all) {
        width = std::max(width, row.name.size());
    }
    std::string text;
    for (const Row& row : all) {
        text += libcommon::printable(row.name) + std::string(width - row.name.size() + 2, ' ') +
                takenText(*row.parameter) + "; in force " + effectText(*row.parameter) + '\n';
    }
    return text;
}

nlohmann::json parametersJson() {
    nlohmann::json list = nlohmann::json::array();
    for (const Row& row : rows()) {
        list.push_back({{"name", row.name},
                        {"takes", takenText(*row.parameter)},
                        {"words", valueWords(*row.parameter)},
                        {"read", readingsText(*row.parameter)},
                        {"inForce", effectText(*row.parameter)}});
    }
    return list;
}
