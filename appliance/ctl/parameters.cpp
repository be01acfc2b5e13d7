#include "appliance/ctl/parameters.h"

#include <array>
#include <charconv>
#include <strings.h>

namespace {

constexpr long day = 86400;

constexpr std::array decoderTable{
    KnownParameter{"Decoder.AutoConnect", ValueKind::YesNo},
    KnownParameter{"Decoder.Connected", ValueKind::YesNo},
    KnownParameter{"Decoder.SequenceMode", ValueKind::Choice, 0, 0, "auto|manual"},
    KnownParameter{"Decoder.AutoDetectTimeout", ValueKind::Number, 0, 600},
    KnownParameter{"Decoder.ShowDisconnectedMessage", ValueKind::YesNo},
    KnownParameter{"Decoder.VideoMode", ValueKind::Choice, 0, 0, "pal|ntsc"},
    KnownParameter{"Alarm.Enabled", ValueKind::YesNo},
    KnownParameter{"Alarm.DisplayTime", ValueKind::Number, 0, day},
    KnownParameter{"Buttons.VideoSelectEnabled", ValueKind::YesNo},
    KnownParameter{"Network.eth0.IPAddress", ValueKind::Text},
    KnownParameter{"Network.TLS.Verify", ValueKind::YesNo},
    KnownParameter{"Network.TLS.CAFile", ValueKind::Text},
};

constexpr std::array sourceTable{
    KnownParameter{"Name", ValueKind::Text},
    KnownParameter{"Address", ValueKind::Text},
    KnownParameter{"VideoSourceNumber", ValueKind::Number, 0, 1000},
    KnownParameter{"VideoSourceType", ValueKind::Choice, 0, 0,
                   "auto|mjpeg|mpeg2-unicast|mpeg2-multicast|rtsp-unicast|rtsp-multicast|rtsp-tcp|rtsp-http"},
    KnownParameter{"UserName", ValueKind::Text},
    KnownParameter{"Password", ValueKind::Text},
    KnownParameter{"AutoEnabled", ValueKind::YesNo},
    KnownParameter{"ManualEnabled", ValueKind::YesNo},
    KnownParameter{"DisplayTime", ValueKind::Number, 0, day},
    KnownParameter{"PTZ", ValueKind::Text},
    KnownParameter{"Resolution", ValueKind::Text},
    KnownParameter{"Compression", ValueKind::Text},
    KnownParameter{"InterlaceMode", ValueKind::Text},
};

constexpr std::array infoTable{
    KnownParameter{"Decoder.Info.CurrentSource", ValueKind::Number, -1, 1000000},
    KnownParameter{"Decoder.Info.Connected", ValueKind::YesNo},
};

constexpr std::string_view sourceGroup = "Encoder.";
constexpr std::string_view infoGroup = "Decoder.Info.";

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool beginsWith(std::string_view name, std::string_view group) {
    return name.size() > group.size() && sameName(name.substr(0, group.size()), group);
}

const KnownParameter* findIn(std::span<const KnownParameter> table, std::string_view name) {
    for (const KnownParameter& parameter : table) {
        if (sameName(parameter.name, name)) {
            return &parameter;
        }
    }
    return nullptr;
}

// "auto|manual" as people read it: "auto or manual".
std::string wordsForPeople(std::string_view words) {
    std::string text;
    while (true) {
        const std::size_t bar = words.find('|');
        text += words.substr(0, bar);
        if (bar == std::string_view::npos) {
            return text;
        }
        words.remove_prefix(bar + 1);
        text += words.find('|') == std::string_view::npos ? " or " : ", ";
    }
}

bool isOneOf(std::string_view words, std::string_view value) {
    while (true) {
        const std::size_t bar = words.find('|');
        if (words.substr(0, bar) == value) {
            return true;
        }
        if (bar == std::string_view::npos) {
            return false;
        }
        words.remove_prefix(bar + 1);
    }
}

bool isNumberWithin(std::string_view value, long least, long most) {
    long number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    return error == std::errc() && end == value.data() + value.size() && number >= least && number <= most;
}

} // namespace

std::span<const KnownParameter> decoderParameters() {
    return decoderTable;
}

std::span<const KnownParameter> sourceParameters() {
    return sourceTable;
}

std::span<const KnownParameter> infoParameters() {
    return infoTable;
}

int parameterFile(std::string_view name) {
    return beginsWith(name, infoGroup) ? 1 : 0;
}

const KnownParameter* findParameter(std::string_view name) {
    if (beginsWith(name, infoGroup)) {
        return findIn(infoTable, name);
    }
    if (beginsWith(name, sourceGroup)) {
        // A source's own name may have dots in it; the key has none.
        const std::size_t dot = name.rfind('.');
        return dot > sourceGroup.size() ? findIn(sourceTable, name.substr(dot + 1)) : nullptr;
    }
    return findIn(decoderTable, name);
}

std::string refusal(const KnownParameter& parameter, std::string_view value) {
    if (value.empty()) {
        return "";
    }
    switch (parameter.kind) {
    case ValueKind::YesNo:
        // The supervisor compares exactly: "Yes" would count as "no".
        return value == "yes" || value == "no" ? "" : "yes or no";
    case ValueKind::Number:
        return isNumberWithin(value, parameter.least, parameter.most)
                   ? ""
                   : "a number from " + std::to_string(parameter.least) + " to " +
                         std::to_string(parameter.most);
    case ValueKind::Choice:
        return isOneOf(parameter.words, value) ? "" : wordsForPeople(parameter.words);
    case ValueKind::Text:
        for (const char c : value) {
            if (static_cast<unsigned char>(c) < ' ') {
                return "a text without control characters";
            }
        }
        return "";
    }
    return "";
}
