#include "appliance/input/protocol/web_source.h"

#include <algorithm>
#include <array>
#include <strings.h>

namespace input {
namespace {

struct EndingRow {
    std::string_view ending;
    WebForm form;
    std::string_view type; // the usual Content-Type; "": a repeated one or none
};
constexpr std::array<EndingRow, 14> endings{{
    {".sdp", WebForm::session, "application/sdp"},
    {".m3u8", WebForm::playlist, "application/vnd.apple.mpegurl"},
    {".m3u8", WebForm::playlist, "application/x-mpegurl"},
    {".m3u8", WebForm::playlist, "audio/mpegurl"},
    {".mp4", WebForm::file, "video/mp4"},
    {".m4v", WebForm::file, "video/x-m4v"},
    {".mov", WebForm::file, "video/quicktime"},
    {".mkv", WebForm::file, "video/x-matroska"},
    {".webm", WebForm::file, "video/webm"},
    {".ts", WebForm::file, "video/mp2t"},
    {".mts", WebForm::file, ""},
    {".avi", WebForm::file, "video/x-msvideo"},
    {".flv", WebForm::file, "video/x-flv"},
    {".mpg", WebForm::file, "video/mpeg"},
}};

bool endsWith(std::string_view text, std::string_view ending) {
    return text.size() > ending.size() &&
           strncasecmp(text.data() + text.size() - ending.size(), ending.data(), ending.size()) == 0;
}

} // namespace

WebForm webFormOf(std::string_view target) {
    const std::string_view path = target.substr(0, target.find('?'));
    const auto* const row = std::ranges::find_if(endings, [&](const EndingRow& one) {
        return endsWith(path, one.ending) || endsWith(target, one.ending);
    });
    return row == endings.end() ? WebForm::none : row->form;
}

std::string_view webEndingOf(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find(';'));
    type = type.substr(0, type.find_last_not_of(' ') + 1);
    const auto* const row = std::ranges::find_if(endings, [&](const EndingRow& one) {
        return !one.type.empty() && one.type.size() == type.size() &&
               strncasecmp(one.type.data(), type.data(), type.size()) == 0;
    });
    return row == endings.end() ? std::string_view{} : row->ending;
}

} // namespace input
