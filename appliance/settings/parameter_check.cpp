#include "appliance/settings/parameter_check.h"

#include "appliance/mqtt/rules/rule.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/nearest_name.h"
#include "appliance/settings/value_check.h"

#include <libcommon/istring.h>
#include <libcommon/parameter_lines.h>
#include <libcommon/paths.h>
#include <libcommon/text.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

namespace {

using libcommon::ParameterLine;

constexpr std::size_t maximumFile = 4 << 20; // the library reads a longer file as an empty one

istring nameKey(std::string_view name) {
    return {name.data(), name.size()};
}

struct Entry {
    std::size_t line = 0;
    std::string value;
};

struct Section {
    std::size_t line = 0;
    std::string name;
    std::map<istring, Entry> keys;

    std::string value(const char* key) const {
        const auto found = keys.find(key);
        return found == keys.end() ? "" : found->second.value;
    }
};

// The section part of each parameter of the decoder, once.
std::vector<std::string> knownSections() {
    std::set<std::string> names;
    for (const KnownParameter& parameter : decoderParameters()) {
        names.emplace(parameter.name.substr(0, parameter.name.rfind('.')));
    }
    return {names.begin(), names.end()};
}

bool isSource(std::string_view section) {
    return section.size() > sourceGroup.size() &&
           sameName(section.substr(0, sourceGroup.size()), sourceGroup);
}

bool isRule(std::string_view section) {
    return section.size() > ruleGroup.size() && sameName(section.substr(0, ruleGroup.size()), ruleGroup);
}

bool isKnownSection(std::string_view name) {
    return isSource(name) || isRule(name) ||
           std::ranges::any_of(knownSections(),
                               [&](const std::string& known) { return sameName(known, name); });
}

class Checker {
public:
    std::vector<Finding> check(std::string_view text) {
        for (const ParameterLine& line : libcommon::parameterLines(text)) {
            take(line);
        }
        for (const auto& [key, section] : sections_) {
            if (isSource(section.name)) {
                checkSource(section);
            } else if (isRule(section.name)) {
                checkRule(section);
            }
        }
        checkDecoder();
        std::ranges::stable_sort(findings_, {}, &Finding::line);
        return std::move(findings_);
    }

private:
    void add(std::size_t line, std::string reason, std::string remedy = "") {
        findings_.push_back({line, std::move(reason), std::move(remedy)});
    }

    void take(const ParameterLine& line) {
        switch (line.kind) {
        case ParameterLine::Kind::Blank:
            return;
        case ParameterLine::Kind::Unreadable:
            return add(line.number, "the line can't be read and is skipped: " + line.reason,
                       "write [SECTION], or KEY = VALUE, or begin a comment with #");
        case ParameterLine::Kind::Section:
            return takeSection(line);
        case ParameterLine::Kind::Key:
            return takeKey(line);
        }
    }

    void takeSection(const ParameterLine& line) {
        const auto [at, isNew] =
            sections_.try_emplace(nameKey(line.section), Section{line.number, line.section, {}});
        if (!isNew) {
            return add(line.number,
                       "the section [" + libcommon::printable(line.section) + "] is also in line " +
                           std::to_string(at->second.line) + ": both are read as one",
                       "merge the two, or rename one");
        }
        if (isKnownSection(line.section)) {
            return;
        }
        if (sameName(line.section, "Encoder")) {
            return add(line.number, "a source's section needs a name", "write [Encoder.NAME]");
        }
        if (sameName(line.section, "Rule")) {
            return add(line.number, "a rule's section needs a name", "write [Rule.NAME]");
        }
        if (sameName(line.section, "Decoder.Info")) {
            return add(
                line.number,
                "the section [Decoder.Info] has no effect here: the decoder keeps it in a file of its own",
                "remove it");
        }
        std::vector<std::string> names = knownSections();
        names.emplace_back("Encoder." + line.section.substr(line.section.find('.') + 1));
        const std::string nearest = nearestName(line.section, names);
        add(line.number,
            "the section [" + libcommon::printable(line.section) + "] is unknown and has no effect",
            nearest.empty() ? "remove it" : "is it [" + libcommon::printable(nearest) + "]?");
    }

    void takeKey(const ParameterLine& line) {
        if (line.section.empty()) {
            return add(line.number,
                       inQuotes(line.key) + " is before the first section line and has no effect",
                       "write it below its section line");
        }
        Section& section = sections_[nameKey(line.section)];
        const auto [at, isNew] = section.keys.try_emplace(nameKey(line.key), Entry{line.number, line.value});
        if (!isNew) {
            add(line.number,
                libcommon::printable(line.key) + " is also in line " + std::to_string(at->second.line) +
                    ": this value holds",
                "remove one of the two");
            at->second = {line.number, line.value};
        }
        if (isKnownSection(line.section)) {
            checkKey(line);
        }
    }

    void checkKey(const ParameterLine& line) {
        const std::string name = line.section + '.' + line.key;
        const KnownParameter* known = findParameter(name);
        if (known == nullptr) {
            const std::string nearest = nearestParameter(name);
            return add(line.number, "the key " + inQuotes(line.key) + " is unknown and has no effect",
                       nearest.empty() ? "remove it"
                                       : "is it " + nearest.substr(nearest.rfind('.') + 1) + '?');
        }
        if (std::optional<Mistake> mistake = valueMistake(*known, line.value)) {
            return add(line.number, libcommon::printable(line.key) + ' ' + mistake->reason, mistake->remedy);
        }
        if (libcommon::printable(line.value) != line.value) {
            add(line.number, "the value of " + libcommon::printable(line.key) + " is not UTF-8",
                "save the file as UTF-8");
        }
    }

    void checkSource(const Section& section) {
        const std::string name =
            "the source " + inQuotes(std::string_view(section.name).substr(sourceGroup.size()));
        if (!section.value("URL").empty()) {
            return; // the gateway writes what is missing
        }
        if (section.value("Address").empty()) {
            add(section.line, name + " has no address and is never shown", "add \"Address = host:port\"");
        }
        const std::string type = section.value("VideoSourceType");
        for (const char* key : {"Resolution", "Compression"}) {
            if ((type.empty() || type == "auto" || type == "mjpeg") && section.value(key).empty()) {
                add(section.line, name + " has no " + key + ": an MJPEG encoder is asked for an empty one",
                    "add \"" + std::string(key) + " = default\"");
            }
        }
        const std::string time = section.value("DisplayTime");
        if (section.value("AutoEnabled") == "yes" && (time.empty() || time == "0")) {
            add(section.line, name + " is in the automatic sequence for 0 seconds",
                "add \"DisplayTime = 10\"");
        }
    }

    // What checkKey() says about a value is not said again.
    void checkRule(const Section& section) {
        SourceParams keys;
        for (const auto& [key, entry] : section.keys) {
            keys[key] = entry.value;
        }
        mqtt::Rule rule;
        for (const mqtt::RuleMistake& mistake :
             mqtt::readRule(section.name.substr(ruleGroup.size()), keys, rule)) {
            if (mistake.key.empty()) {
                const std::string name = inQuotes(std::string_view(section.name).substr(ruleGroup.size()));
                add(section.line, "the rule " + name + ' ' + mistake.reason, mistake.remedy);
            } else if (!sameName(mistake.key, "MinimumTime")) {
                add(section.keys.at(nameKey(mistake.key)).line, mistake.key + ' ' + mistake.reason,
                    mistake.remedy);
            }
        }
    }

    void checkDecoder() {
        const Section& decoder = sections_["Decoder"];
        const std::string mode = decoder.value("SequenceMode");
        if (mode.empty()) {
            add(decoder.line, "Decoder.SequenceMode is missing", "add \"SequenceMode = auto\" to [Decoder]");
        }
        const std::string timeout = decoder.value("AutoDetectTimeout");
        if (timeout.empty() || timeout == "0") {
            add(decoder.line,
                "Decoder.AutoDetectTimeout is " + std::string(timeout.empty() ? "missing" : "0") +
                    ": 1 second is used",
                "add \"AutoDetectTimeout = 10\" to [Decoder]");
        }
        const char* enabled = mode == "manual" ? "ManualEnabled" : "AutoEnabled";
        const bool anything = std::ranges::any_of(sections_, [&](const auto& entry) {
            const Section& section = entry.second;
            const std::string enabledValue = section.value(enabled);
            return isSource(section.name) &&
                   (!section.value("URL").empty()
                        ? enabledValue != "no"
                        : !section.value("Address").empty() && enabledValue == "yes");
        });
        if (!anything) {
            add(0,
                "no source can be shown in " + std::string(mode == "manual" ? "manual" : "automatic") +
                    " mode",
                "add a section [Encoder.NAME] with Address and \"" + std::string(enabled) + " = yes\"");
        }
    }

    std::map<istring, Section> sections_;
    std::vector<Finding> findings_;
};

} // namespace

std::vector<Finding> findMistakes(std::string_view text) {
    return Checker().check(text);
}

std::string findingsText(const std::string& file, const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += libcommon::printable(file) + (finding.line == 0 ? "" : ':' + std::to_string(finding.line)) +
                ": " + finding.reason + (finding.remedy.empty() ? "" : "; " + finding.remedy) + '\n';
    }
    const std::size_t count = findings.size();
    return text + (count == 0 ? libcommon::printable(file) + ": no mistakes\n"
                              : std::to_string(count) + (count == 1 ? " mistake\n" : " mistakes\n"));
}

nlohmann::json findingsJson(const std::string& file, const std::vector<Finding>& findings) {
    nlohmann::json list = nlohmann::json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"line", finding.line}, {"reason", finding.reason}, {"remedy", finding.remedy}});
    }
    return {{"file", libcommon::printable(file)}, {"findings", list}};
}

std::string readParameterText(const std::string& file) {
    std::ifstream opened;
    if (file != "-") {
        const bool folder = std::filesystem::is_directory(file);
        errno = folder ? EISDIR : 0;
        opened.open(file, std::ios::binary);
        if (!opened || folder) {
            throw Refused(libcommon::printable(file) + " can't be read: " + std::strerror(errno));
        }
    }
    std::istream& input = file == "-" ? std::cin : opened;
    std::string text(std::istreambuf_iterator<char>(input), {});
    if (text.size() > maximumFile) {
        throw Refused(libcommon::printable(file) +
                      " has more than 4 MiB: the decoder reads it as an empty file");
    }
    return text;
}

std::string configurationFile() {
    return libcommon::appliancePath("/etc/decoder/decoder.conf");
}
