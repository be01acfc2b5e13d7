#include "appliance/settings/known_parameters.h"

#include "appliance/screen/screen_settings.h"
#include "appliance/settings/nearest_name.h"

#include <algorithm>
#include <array>
#include <strings.h>

namespace {

constexpr long day = 86400;

constexpr std::array decoderTable{
    KnownParameter{"Decoder.AutoConnect", ValueKind::YesNo, AtStart},
    KnownParameter{"Decoder.Connected", ValueKind::YesNo, AtUse},
    KnownParameter{"Decoder.SequenceMode", ValueKind::Choice, AtConnect, 0, 0, "auto|manual"},
    KnownParameter{"Decoder.AutoDetectTimeout", ValueKind::Number, AtConnect | AtDetection, 0, 600},
    KnownParameter{"Decoder.ShowDisconnectedMessage", ValueKind::YesNo, AtDisconnect},
    KnownParameter{"Decoder.VideoMode", ValueKind::Choice, AtPlayer, 0, 0, "pal|ntsc"},
    KnownParameter{"Decoder.RecordingSize", ValueKind::Number, AtStart, 0, 65536},
    KnownParameter{"Screen.Size", ValueKind::ChoiceOrSize, AtUse, 0, 0, "auto"},
    KnownParameter{"Screen.Fit", ValueKind::Choice, AtUse, 0, 0, "bars|fill|crop"},
    KnownParameter{"Screen.ShowName", ValueKind::ChoiceOrNumber, AtUse, 1, 3600, "no|always"},
    KnownParameter{"Screen.ShowClock", ValueKind::YesNo, AtUse},
    KnownParameter{"Player.StillAfter", ValueKind::Number, AtUse, 0, day},
    KnownParameter{"Player.EndWhenStill", ValueKind::YesNo, AtUse},
    KnownParameter{"Player.Confined", ValueKind::YesNo, AtUse},
    KnownParameter{"Sound.Enabled", ValueKind::YesNo, AtUse},
    KnownParameter{"Sound.Device", ValueKind::Text, AtUse},
    KnownParameter{"Sound.Volume", ValueKind::Number, AtUse, 0, 100},
    KnownParameter{"Alarm.Enabled", ValueKind::YesNo, AtUse},
    KnownParameter{"Alarm.DisplayTime", ValueKind::Number, AtUse, 0, day},
    KnownParameter{"Buttons.VideoSelectEnabled", ValueKind::YesNo, AtUse},
    KnownParameter{"Network.eth0.IPAddress", ValueKind::Text, AtDisconnect},
    KnownParameter{"Network.TLS.Verify", ValueKind::YesNo, AtUse},
    KnownParameter{"Network.TLS.CAFile", ValueKind::Text, AtUse},
    KnownParameter{"Gateway.Port", ValueKind::Number, AtUse, 1, 65535},
    KnownParameter{"Gateway.HighestNumber", ValueKind::Number, AtUse, 0, 1000000},
    KnownParameter{"Warm.Sources", ValueKind::Choice, AtUse, 0, 0, "none|next|all"},
    KnownParameter{"Warm.MaxSources", ValueKind::Number, AtUse, 1, 1000},
    KnownParameter{"Warm.MaxMemory", ValueKind::Number, AtUse, 1, 65536},
    KnownParameter{"Mqtt.Broker", ValueKind::Broker, AtUse},
    KnownParameter{"Mqtt.UserName", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.Password", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.CAFile", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.CertFile", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.KeyFile", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.Topic", ValueKind::OwnTopic, AtUse},
    KnownParameter{"Mqtt.Groups", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.Discovery", ValueKind::YesNo, AtUse},
    KnownParameter{"Mqtt.DiscoveryPrefix", ValueKind::Text, AtUse},
    KnownParameter{"Mqtt.MaximumAge", ValueKind::Number, AtUse, 1, 3600},
    KnownParameter{"Panel.Name", ValueKind::Text, AtPanel},
    KnownParameter{"Panel.Address", ValueKind::Text, AtPanel},
    KnownParameter{"Panel.Port", ValueKind::Number, AtPanel, 1, 65535},
    KnownParameter{"Panel.Hosts", ValueKind::Text, AtPanel},
    KnownParameter{"Panel.TLS", ValueKind::Choice, AtPanel, 0, 0, "auto|no|own|files"},
    KnownParameter{"Panel.CertificateFile", ValueKind::Text, AtPanel},
    KnownParameter{"Panel.KeyFile", ValueKind::Text, AtPanel},
    KnownParameter{"Panel.LogInRate", ValueKind::Number, AtPanel, 1, 10000},
    KnownParameter{"Panel.IdleTime", ValueKind::Number, AtPanel, 1, day},
    KnownParameter{"Panel.SessionTime", ValueKind::Number, AtPanel, 1, 30 * day},
    KnownParameter{"Panel.PictureRate", ValueKind::Number, AtPanel, 1, 60},
    KnownParameter{"Panel.PictureWidth", ValueKind::Number, AtPanel, 160, 3840},
};

constexpr std::array sourceTable{
    KnownParameter{"Name", ValueKind::Text, AtConnect},
    KnownParameter{"Address", ValueKind::Address, AtConnect | AtPlayer},
    KnownParameter{"URL", ValueKind::Text, AtUse},
    KnownParameter{"Transport", ValueKind::Choice, AtUse, 0, 0, "auto|udp|tcp|multicast"},
    KnownParameter{"SubURL", ValueKind::Text, AtPlayer},
    KnownParameter{"Quality", ValueKind::Choice, AtPlayer, 0, 0, "auto|main|sub"},
    KnownParameter{"VideoSourceNumber", ValueKind::Number, AtPlayer, 0, 1000000},
    KnownParameter{"VideoSourceType", ValueKind::Choice, AtPlayer, 0, 0,
                   "auto|mjpeg|mpeg2-unicast|mpeg2-multicast|rtsp-unicast|rtsp-multicast|rtsp-tcp|rtsp-http"},
    KnownParameter{"UserName", ValueKind::Text, AtDetection},
    KnownParameter{"Password", ValueKind::Text, AtDetection},
    KnownParameter{"AutoEnabled", ValueKind::YesNo, AtConnect},
    KnownParameter{"ManualEnabled", ValueKind::YesNo, AtConnect},
    KnownParameter{"DisplayTime", ValueKind::Number, AtConnect, 0, day},
    KnownParameter{"PTZ", ValueKind::Text, AtPlayer},
    KnownParameter{"Warm", ValueKind::Choice, AtUse, 0, 0, "auto|yes|no"},
    KnownParameter{"Resolution", ValueKind::Default, AtPlayer},
    KnownParameter{"Compression", ValueKind::Default, AtPlayer},
    KnownParameter{"InterlaceMode", ValueKind::Text, AtPlayer},
};

constexpr std::array ruleTable{
    KnownParameter{"Topic", ValueKind::Text, AtUse},
    KnownParameter{"Path", ValueKind::Text, AtUse},
    KnownParameter{"Condition", ValueKind::Text, AtUse},
    KnownParameter{"Source", ValueKind::Text, AtUse},
    KnownParameter{"Text", ValueKind::Text, AtUse},
    KnownParameter{"MinimumTime", ValueKind::Number, AtUse, 0, day},
};

constexpr std::array infoTable{
    KnownParameter{"Decoder.Info.CurrentSource", ValueKind::Number, AtUse, -1, 1000000},
    KnownParameter{"Decoder.Info.Connected", ValueKind::YesNo, AtUse},
    KnownParameter{"Screen.Info.Size", ValueKind::Text, AtUse},
    KnownParameter{"Screen.Info.MonitorPid", ValueKind::Text, AtUse},
    KnownParameter{"Screen.Info.MonitorStart", ValueKind::Text, AtUse},
    KnownParameter{"Screen.Info.TileSize", ValueKind::Text, AtUse},
    KnownParameter{"Screen.Info.TilePid", ValueKind::Text, AtUse},
    KnownParameter{"Screen.Info.TileStart", ValueKind::Text, AtUse},
    KnownParameter{"Sound.Info.Muted", ValueKind::YesNo, AtUse},
};

struct ReadingWords {
    Reading reading;
    const char* inTable; // of docs/parameters.md
    const char* effect;
};

// The first row that a parameter has decides when a new value is in force.
constexpr std::array readingWords{
    ReadingWords{AtStart, "start", "when the supervisor starts next"},
    ReadingWords{AtPanel, "panel", "when the panel starts next"},
    ReadingWords{AtConnect, "connect", "at the next connect"},
    ReadingWords{AtDetection, "detection", "at the next detection of the encoder"},
    ReadingWords{AtDisconnect, "disconnect", "at the next disconnect"},
    ReadingWords{AtPlayer, "player", "with the next player"},
    ReadingWords{AtUse, "use", "now"},
};

constexpr std::string_view infoSection = ".Info"; // the end of each section of file 1

bool beginsWith(std::string_view name, std::string_view group) {
    return name.size() > group.size() && sameName(name.substr(0, group.size()), group);
}

struct Group {
    std::string_view prefix; // of its sections
    std::span<const KnownParameter> keys;
};

constexpr std::array groups{Group{sourceGroup, sourceTable}, Group{ruleGroup, ruleTable}};

// The group to whose sections the name belongs, or null.
const Group* groupOf(std::string_view name) {
    const auto* const found =
        std::ranges::find_if(groups, [&](const Group& group) { return beginsWith(name, group.prefix); });
    return found == groups.end() ? nullptr : found;
}

const KnownParameter* findIn(std::span<const KnownParameter> table, std::string_view name) {
    for (const KnownParameter& parameter : table) {
        if (sameName(parameter.name, name)) {
            return &parameter;
        }
    }
    return nullptr;
}

std::string joined(const std::vector<std::string>& words, const char* beforeLast) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : beforeLast) + words[i];
    }
    return text;
}

std::vector<std::string> split(std::string_view words) {
    std::vector<std::string> all;
    while (!words.empty()) {
        const std::size_t bar = words.find('|');
        all.emplace_back(words.substr(0, bar));
        words.remove_prefix(bar == std::string_view::npos ? words.size() : bar + 1);
    }
    return all;
}

} // namespace

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::span<const KnownParameter> decoderParameters() {
    return decoderTable;
}

std::span<const KnownParameter> sourceParameters() {
    return sourceTable;
}

std::span<const KnownParameter> ruleParameters() {
    return ruleTable;
}

std::span<const KnownParameter> infoParameters() {
    return infoTable;
}

int parameterFile(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == name.size() || dot <= infoSection.size() ||
        groupOf(name) != nullptr) {
        return 0;
    }
    return sameName(name.substr(dot - infoSection.size(), infoSection.size()), infoSection) ? 1 : 0;
}

const KnownParameter* findParameter(std::string_view name) {
    if (parameterFile(name) == 1) {
        return findIn(infoTable, name);
    }
    if (const Group* group = groupOf(name)) {
        // The section's own name may have dots in it; the key has none.
        const std::size_t dot = name.rfind('.');
        return dot > group->prefix.size() ? findIn(group->keys, name.substr(dot + 1)) : nullptr;
    }
    return findIn(decoderTable, name);
}

std::vector<std::string> valueWords(const KnownParameter& parameter) {
    return parameter.kind == ValueKind::YesNo ? std::vector<std::string>{"yes", "no"}
                                              : split(parameter.words);
}

std::string takenText(const KnownParameter& parameter) {
    switch (parameter.kind) {
    case ValueKind::YesNo:
    case ValueKind::Choice:
        return joined(valueWords(parameter), " or ");
    case ValueKind::Number:
        return "a number from " + std::to_string(parameter.least) + " to " + std::to_string(parameter.most);
    case ValueKind::ChoiceOrNumber:
        return joined(valueWords(parameter), ", ") + " or a number from " + std::to_string(parameter.least) +
               " to " + std::to_string(parameter.most);
    case ValueKind::ChoiceOrSize:
        return joined(valueWords(parameter), ", ") + " or a size, even numbers from " +
               screen::sizeText(screen::smallestScreen) + " to " + screen::sizeText(screen::largestScreen);
    case ValueKind::Address:
        return "host or host:port";
    case ValueKind::Broker:
        return "mqtt://HOST, mqtts://HOST, or with :PORT";
    case ValueKind::OwnTopic:
        return "SITE/NAME";
    case ValueKind::Default:
        return "default or a value";
    case ValueKind::Text:
        return "text";
    }
    return "";
}

std::string readingsText(const KnownParameter& parameter) {
    std::vector<std::string> all;
    for (const ReadingWords& words : readingWords) {
        if ((parameter.readings & words.reading) != 0) {
            all.emplace_back(words.inTable);
        }
    }
    return joined(all, ", ");
}

std::string effectText(const KnownParameter& parameter) {
    for (const ReadingWords& words : readingWords) {
        if ((parameter.readings & words.reading) != 0) {
            return words.effect;
        }
    }
    return "";
}

std::string nearestParameter(std::string_view name) {
    std::vector<std::string> names;
    // A section of a group can have any name, so only the key is compared.
    const Group* group = groupOf(name);
    const std::string_view section = group != nullptr ? name.substr(0, name.rfind('.') + 1) : "";
    for (const KnownParameter& parameter : group != nullptr ? group->keys : decoderParameters()) {
        names.emplace_back(parameter.name);
    }
    const std::string nearest = nearestName(name.substr(section.size()), names);
    return nearest.empty() ? "" : std::string(section) + nearest;
}
