#include "appliance/reporting/source_report.h"

#include "appliance/reporting/error_words.h"
#include "appliance/settings/secrets.h"

#include <libcommon/status.h>
#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

// The status values of a source, in the order in which they are printed.
constexpr std::array statusKeys{
    "ErrorCode",   "Reason",     "VideoSourceType", "ConnectMode",   "Audio",
    "AudioFormat", "APIVersion", "Model",           "ImageRotation", "NumberOfVideoSources",
    "BitRate",     "FrameRate",  "Resolution",      "Codec",         "KeyInterval",
    "Transport",   "Encoded",    "Still",
};

std::string valueOf(const std::vector<std::pair<std::string, std::string>>& pairs, std::string_view key) {
    const auto found = std::ranges::find(pairs, key, &std::pair<std::string, std::string>::first);
    return found == pairs.end() ? "" : found->second;
}

SourceReport makeReport(int index, SourceParams& params) {
    SourceReport report;
    report.index = index;
    report.name = params["Name"];
    report.address = params["Address"];
    for (const char* key : statusKeys) {
        report.status.emplace_back(key, status(index, key));
    }
    for (const auto& [key, value] : params) {
        if (key == "Name" || key == "Address") {
            continue;
        }
        const std::string name(key.c_str());
        const bool secret = isSecretName(name) && !value.empty();
        report.configured.emplace_back(name, secret ? std::string(hiddenSecret) : withoutSecrets(value));
    }
    return report;
}

// What the gateway knows about the stream: ", H264 1920x1080".
std::string streamText(const SourceReport& source) {
    const std::string codec = valueOf(source.status, "Codec");
    const std::string size = valueOf(source.status, "Resolution");
    return codec.empty()
               ? ""
               : ", " + libcommon::printable(codec) + (size.empty() ? "" : ' ' + libcommon::printable(size));
}

// The state of a source in a few words.
std::string condition(const SourceReport& source) {
    const std::string error = valueOf(source.status, "ErrorCode");
    const std::string type = valueOf(source.status, "VideoSourceType");
    if (isError(error)) {
        const std::string reason = valueOf(source.status, "Reason");
        return errorText(error) + (reason.empty() ? "" : ": " + libcommon::printable(reason));
    }
    if (type.empty()) {
        return "not detected";
    }
    const std::string mode = valueOf(source.status, "ConnectMode");
    return libcommon::printable(type) + (mode.empty() ? "" : ", " + libcommon::printable(mode)) +
           streamText(source);
}

// The text behind the condition of a source whose configuration is not in force yet.
std::string notInForce(const SourceReport& source) {
    return source.difference.inForce()
               ? ""
               : "; not in force before the next connect (" + differenceText(source.difference) + ')';
}

// "key picture 0.4 s old, 3.9 Mbit/s, 512 KiB", or why the source is not warm.
std::string warmWords(const streams::KeptReport& warm) {
    if (!warm.kept) {
        return "no, " + libcommon::printable(warm.reason);
    }
    std::ostringstream words;
    words << std::fixed << std::setprecision(1) << "key picture " << static_cast<double>(warm.keyAgeMs) / 1e3
          << " s old, " << static_cast<double>(warm.bitRate) / 1e6 << " Mbit/s, "
          << (warm.bytes + 1023) / 1024 << " KiB";
    return words.str();
}

std::string warmText(const SourceReport& source) {
    return source.warm ? "; warm: " + warmWords(*source.warm) : "";
}

nlohmann::json warmJson(const SourceReport& source) {
    if (!source.warm) {
        return nullptr;
    }
    const streams::KeptReport& warm = *source.warm;
    return {{"kept", warm.kept},   {"keyAgeMs", warm.keyAgeMs}, {"bitRate", warm.bitRate},
            {"bytes", warm.bytes}, {"players", warm.players},   {"reason", warm.reason}};
}

// Characters, not bytes: names are UTF-8.
std::size_t characters(const std::string& text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t width) {
    const std::size_t length = characters(text);
    return length < width ? text + std::string(width - length, ' ') : text;
}

void addLine(std::string& text, const std::string& key, const std::string& value) {
    text += libcommon::printable(key) + '=' + libcommon::printable(value) + '\n';
}

nlohmann::json asObject(const std::vector<std::pair<std::string, std::string>>& pairs) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, value] : pairs) {
        object[key] = value;
    }
    return object;
}

} // namespace

std::vector<SourceReport> readSourceReports(const InForce& inForce) {
    std::vector<SourceReport> reports;
    for (SourceParams params : getSubGroups(0, "Encoder")) {
        SourceDifference difference = inForce.difference(reports.size(), params);
        reports.push_back(makeReport(static_cast<int>(reports.size()), params));
        reports.back().difference = std::move(difference);
    }
    return reports;
}

void addWarmReports(std::vector<SourceReport>& sources) {
    for (const streams::KeptReport& warm :
         streams::askKeeper().value_or(std::vector<streams::KeptReport>())) {
        for (const int index : warm.sources) {
            if (index >= 0 && static_cast<std::size_t>(index) < sources.size()) {
                sources[static_cast<std::size_t>(index)].warm = warm;
            }
        }
    }
}

std::vector<std::string> sourceNames(const std::vector<SourceReport>& sources) {
    std::vector<std::string> names;
    names.reserve(sources.size());
    for (const SourceReport& source : sources) {
        names.push_back(source.name);
    }
    return names;
}

std::string sourcesText(const std::vector<SourceReport>& sources, int current) {
    if (sources.empty()) {
        return "no sources are configured\n";
    }
    std::size_t nameWidth = 4;
    std::size_t addressWidth = 7;
    for (const SourceReport& source : sources) {
        nameWidth = std::max(nameWidth, characters(libcommon::printable(source.name)));
        addressWidth = std::max(addressWidth, characters(libcommon::printable(source.address)));
    }
    std::string text;
    for (const SourceReport& source : sources) {
        text += (source.index == current ? "* " : "  ") + padded(std::to_string(source.index), 4) +
                padded(libcommon::printable(source.name), nameWidth + 2) +
                padded(libcommon::printable(source.address), addressWidth + 2) + condition(source) +
                warmText(source) + notInForce(source) + '\n';
    }
    return text;
}

nlohmann::json sourcesJson(const std::vector<SourceReport>& sources, int current) {
    nlohmann::json list = nlohmann::json::array();
    for (const SourceReport& source : sources) {
        nlohmann::json entry = sourceJson(source);
        entry["current"] = source.index == current;
        list.push_back(std::move(entry));
    }
    return list;
}

std::string sourceText(const SourceReport& source) {
    std::string text;
    addLine(text, "Index", std::to_string(source.index));
    addLine(text, "Name", source.name);
    addLine(text, "Address", source.address);
    addLine(text, "InForce",
            source.difference.inForce() ? "yes" : "no, " + differenceText(source.difference));
    for (const auto& [key, value] : source.status) {
        addLine(text, key, value);
        if (key == "ErrorCode" && isError(value)) {
            addLine(text, "Error", errorWords(value));
        }
    }
    if (source.warm) {
        addLine(text, "Warm", warmWords(*source.warm));
    }
    for (const auto& [key, value] : source.configured) {
        text += "Configured.";
        addLine(text, key, value);
    }
    return text;
}

nlohmann::json sourceJson(const SourceReport& source) {
    return {{"index", source.index},
            {"name", source.name},
            {"address", source.address},
            {"inForce", source.difference.inForce()},
            {"new", source.difference.isNew},
            {"changed", source.difference.changed},
            {"error", errorWords(valueOf(source.status, "ErrorCode"))},
            {"warm", warmJson(source)},
            {"status", asObject(source.status)},
            {"configured", asObject(source.configured)}};
}
