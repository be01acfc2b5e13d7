#include "appliance/input/protocol/web_source.h"

#include <algorithm>
#include <array>
#include <cstddef>
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

struct BeginningRow {
    std::size_t at;
    std::string_view bytes;
    WebForm form;
};
constexpr std::array<BeginningRow, 8> beginnings{{
    {0, "#EXTM3U", WebForm::playlist},
    {0, "v=0\r\n", WebForm::session},
    {0, "v=0\n", WebForm::session},
    {4, "ftyp", WebForm::file},                            // MP4
    {0, "\x1a\x45\xdf\xa3", WebForm::file},                // Matroska
    {8, "AVI ", WebForm::file},                            // behind RIFF and its length
    {0, std::string_view("FLV\1", 4), WebForm::file},      //
    {0, std::string_view("\0\0\1\xba", 4), WebForm::file}, // a program stream's pack
}};

bool isTransportStream(std::string_view bytes) {
    constexpr std::size_t packet = 188;
    constexpr char sync = 0x47;
    return bytes.size() > packet && bytes[0] == sync && bytes[packet] == sync;
}

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

WebForm webFormOfType(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find(';'));
    type = type.substr(0, type.find_last_not_of(' ') + 1);
    const auto* const row = std::ranges::find_if(endings, [&](const EndingRow& one) {
        return !one.type.empty() && one.type.size() == type.size() &&
               strncasecmp(one.type.data(), type.data(), type.size()) == 0;
    });
    return row == endings.end() ? WebForm::none : row->form;
}

WebForm webFormOfBytes(std::string_view first) {
    if (isTransportStream(first))
        return WebForm::file;
    const auto* const row = std::ranges::find_if(beginnings, [&](const BeginningRow& one) {
        return first.size() > one.at && first.substr(one.at).starts_with(one.bytes);
    });
    return row == beginnings.end() ? WebForm::none : row->form;
}

} // namespace input
