#include "appliance/panel/web/static_files.h"

namespace panel {
namespace {

constexpr std::string_view startPage = "index.html";

Response answerFor(const StaticFile& file, const Request& request) {
    Response response;
    response.type = file.type;
    const std::string etag = '"' + std::string(file.hash) + '"';
    response.headers.emplace_back("ETag", etag);
    response.headers.emplace_back("Cache-Control", "no-cache");
    const auto known = request.headers.find("if-none-match");
    if (known != request.headers.end() && known->second == etag)
        response.status = 304;
    else
        response.body = file.content;
    return response;
}

} // namespace

void addStaticFiles(Router& router, std::span<const StaticFile> files) {
    for (const StaticFile& file : files) {
        const std::string path = file.name == startPage ? "/" : "/assets/" + std::string(file.name);
        router.add("GET", path, Role::None, [&file](const Request& request, const Answer& answer) {
            answer(answerFor(file, request));
        });
    }
}

} // namespace panel
