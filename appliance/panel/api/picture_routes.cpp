// Pictures of the screen and stills of the sources.
#include "appliance/panel/api/room.h"
#include "appliance/screen/composition.h"
#include "appliance/screen/picture.h"

#include <charconv>
#include <string_view>

namespace panel {
namespace {

constexpr const char* shortCache = "private, max-age=60";
constexpr const char* noCache = "no-store";

Response jpegResponse(JpegPtr jpeg, const char* cache) {
    Response response;
    response.type = "image/jpeg";
    response.sharedBody = std::move(jpeg);
    response.headers.emplace_back("Cache-Control", cache);
    return response;
}

// NUMBER.jpg
std::uint64_t pictureNumber(const std::string& file) {
    constexpr std::string_view ending = ".jpg";
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(file.data(), file.data() + file.size(), number);
    if (error != std::errc() || std::string_view(end, file.data() + file.size()) != ending)
        throw RequestRefused(404, "a picture's address is its number and .jpg");
    return number;
}

Response pictureResponse(Room& room, std::uint64_t number) {
    room.pictures->fetched();
    const MadePicture picture = room.pictures->picture(number);
    if (picture.number == 0)
        throw RequestRefused(404,
                             "there is no picture yet: pictures are made while somebody follows the events");
    Response response = jpegResponse(picture.jpeg, picture.number == number ? shortCache : noCache);
    response.headers.emplace_back("X-Picture", std::to_string(picture.number));
    return response;
}

Response stillResponse(const Room& room, const Request& request) {
    const std::optional<Still> still = room.pictures->stills().find(askedSource(room, request).name);
    if (!still)
        throw RequestRefused(404, "this source has shown no picture since the panel started");
    // The address in the list of sources has another query for each still.
    return jpegResponse(still->jpeg, request.query.empty() ? noCache : shortCache);
}

Response snapshotResponse() {
    screen::Composer composer;
    const std::vector<std::uint8_t> png = screen::pngOf(composer.compose());
    if (png.empty())
        throw std::runtime_error("the picture of the screen could not be made");
    Response response;
    response.type = "image/png";
    response.body.assign(png.begin(), png.end());
    response.headers.emplace_back("Cache-Control", noCache);
    return response;
}

} // namespace

void addPictureRoutes(Routes& routes, Room& room) {
    routes.add("GET", "/api/v1/pictures/{file}", Role::Viewer,
               [&room](const Request& request, const Answer& answer) {
                   answer(pictureResponse(room, pictureNumber(request.parts.at("file"))));
               });
    routes.add(
        "GET", "/api/v1/sources/{source}/still.jpg", Role::Viewer,
        [&room](const Request& request, const Answer& answer) { answer(stillResponse(room, request)); });
    routes.add("GET", "/api/v1/snapshot.png", Role::Viewer, [&room](const Request&, const Answer& answer) {
        answerFrom(room.readings, answer, snapshotResponse);
    });
}

} // namespace panel
