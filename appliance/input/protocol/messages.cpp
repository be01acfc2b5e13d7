#include "appliance/input/protocol/messages.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace input {
namespace {

constexpr std::array<std::pair<Kind, std::string_view>, 5> kinds{{{Kind::file, "file"},
                                                                  {Kind::device, "device"},
                                                                  {Kind::srt, "srt"},
                                                                  {Kind::web, "web"},
                                                                  {Kind::packets, "packets"}}};
constexpr std::array<std::string_view, 3> decodable{"VP8", "VP9", "AV1"};
constexpr std::array<std::pair<WebForm, std::string_view>, 4> forms{{{WebForm::none, ""},
                                                                     {WebForm::session, "session"},
                                                                     {WebForm::playlist, "playlist"},
                                                                     {WebForm::file, "file"}}};
constexpr std::size_t lines = 9;

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

} // namespace

std::string framed(int channel, std::string_view bytes) {
    bytes = bytes.substr(0, longestMessage);
    std::string message{'$', static_cast<char>(channel), static_cast<char>(bytes.size() >> 8),
                        static_cast<char>(bytes.size() & 255)};
    return message.append(bytes);
}

std::string textOf(const Request& request) {
    const auto* const kind =
        std::ranges::find(kinds, request.kind, &std::pair<Kind, std::string_view>::first);
    return std::string(kind->second) + '\n' + request.place + '\n' + request.password + '\n' + request.codec +
           '\n' + std::to_string(request.clockRate) + '\n' + request.user + '\n' +
           (request.verified ? "yes" : "no") + '\n' + request.authorities + '\n' +
           std::string(
               std::ranges::find(forms, request.form, &std::pair<WebForm, std::string_view>::first)->second) +
           '\n';
}

std::optional<Request> readRequest(std::string_view text) {
    if (std::ranges::count(text, '\n') != lines)
        return std::nullopt;
    const auto* const kind =
        std::ranges::find(kinds, takeLine(text), &std::pair<Kind, std::string_view>::second);
    if (kind == kinds.end())
        return std::nullopt;
    Request request{.kind = kind->first, .place = {}, .password = {}, .codec = {}, .clockRate = 0};
    request.place = takeLine(text);
    request.password = takeLine(text);
    request.codec = takeLine(text);
    const std::string_view rate = takeLine(text);
    const auto [end, error] = std::from_chars(rate.data(), rate.data() + rate.size(), request.clockRate);
    if (error != std::errc{} || end != rate.data() + rate.size() || request.clockRate < 1)
        return std::nullopt;
    request.user = takeLine(text);
    request.verified = takeLine(text) != "no";
    request.authorities = takeLine(text);
    const auto* const form =
        std::ranges::find(forms, takeLine(text), &std::pair<WebForm, std::string_view>::second);
    if (form == forms.end())
        return std::nullopt;
    request.form = form->first;
    return request;
}

bool decodesPackets(std::string_view encodingName) {
    return std::ranges::find(decodable, encodingName) != decodable.end();
}

} // namespace input
