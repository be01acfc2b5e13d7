#include "appliance/discovery/found_cameras.h"

#include "appliance/discovery/web_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <libcommon/paths.h>
#include <libcommon/text.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using nlohmann::json;

constexpr std::size_t maxFileBytes = 64UL * 1024 * 1024;

json streamJson(const CameraStream& stream) {
    const MediaProfile& profile = stream.profile;
    return {{"profile", profile.token}, {"name", profile.name},       {"videoSource", profile.source},
            {"codec", profile.codec},   {"width", profile.width},     {"height", profile.height},
            {"rate", profile.rate},     {"bitrate", profile.bitrate}, {"sound", profile.sound},
            {"url", stream.url},        {"problem", stream.problem}};
}

json cameraJson(const Camera& camera) {
    const DeviceInformation& known = camera.information;
    json streams = json::array();
    for (const CameraStream& stream : camera.streams) {
        streams.push_back(streamJson(stream));
    }
    return {{"number", camera.number},
            {"endpoint", camera.endpoint},
            {"name", camera.name},
            {"address", camera.address},
            {"service", camera.service},
            {"manufacturer", known.manufacturer},
            {"model", known.model},
            {"firmware", known.firmware},
            {"serial", known.serial},
            {"hardware", known.hardware},
            {"state", cameraStateNames[static_cast<std::size_t>(camera.state)]},
            {"reason", camera.reason},
            {"text", stateText(camera)},
            {"streams", streams}};
}

CameraStream readStream(const json& from) {
    CameraStream stream;
    MediaProfile& profile = stream.profile;
    profile.token = from.value("profile", "");
    profile.name = from.value("name", "");
    profile.source = from.value("videoSource", "");
    profile.codec = from.value("codec", "");
    profile.width = from.value("width", 0);
    profile.height = from.value("height", 0);
    profile.rate = from.value("rate", 0.0);
    profile.bitrate = from.value("bitrate", 0);
    profile.sound = from.value("sound", "");
    const auto url = readStreamUrl(from.value("url", ""));
    stream.url = url ? url->url() : "";
    stream.problem = from.value("problem", "");
    return stream;
}

Camera readCamera(const json& from) {
    Camera camera;
    camera.number = from.value("number", 0);
    camera.endpoint = from.value("endpoint", "");
    camera.name = from.value("name", "");
    camera.address = from.value("address", "");
    camera.service = from.value("service", "");
    camera.reason = from.value("reason", "");
    const std::string state = from.value("state", "");
    const auto* const row = std::ranges::find(cameraStateNames, state);
    camera.state = row == cameraStateNames.end() ? CameraState::NotAsked
                                                 : static_cast<CameraState>(row - cameraStateNames.begin());
    for (const json& stream : from.at("streams")) {
        camera.streams.push_back(readStream(stream));
    }
    return camera;
}

std::string systemError(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// The whole text of the file. Nobody but its owner may have written it, and the owner is this user or root.
std::string readOwnFile(const std::string& file) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        throw std::runtime_error(errno == ENOENT
                                     ? "no cameras were searched for yet: run decoderctl discover first"
                                     : systemError(file));
    }
    struct stat info {};
    const bool mine = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 022) == 0 &&
                      (info.st_uid == geteuid() || info.st_uid == 0) &&
                      static_cast<std::size_t>(info.st_size) <= maxFileBytes;
    std::string text(mine ? static_cast<std::size_t>(info.st_size) : 0, '\0');
    const ssize_t got = mine ? read(fd, text.data(), text.size()) : -1;
    close(fd);
    if (!mine) {
        throw std::runtime_error(file + " was not written by this user: run decoderctl discover again");
    }
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return text;
}

std::string profileList(const Camera& camera) {
    std::string list;
    for (const CameraStream& stream : camera.streams) {
        if (!stream.url.empty()) {
            list += (list.empty() ? "" : ", ") + libcommon::printable(stream.profile.name);
        }
    }
    return list;
}

} // namespace

nlohmann::json discoveryJson(const Discovery& discovery) {
    json cameras = json::array();
    for (const Camera& camera : discovery.cameras) {
        cameras.push_back(cameraJson(camera));
    }
    return {{"cameras", cameras}, {"notes", discovery.notes}};
}

std::string foundCamerasFile() {
    const std::string folder = libcommon::appliancePath("/run/decoder");
    if (access(folder.c_str(), W_OK) == 0) {
        return folder + "/discovery.json";
    }
    const char* const cache = std::getenv("XDG_CACHE_HOME");
    const char* const home = std::getenv("HOME");
    const std::string base = cache != nullptr && cache[0] == '/'
                                 ? std::string(cache)
                                 : std::string(home == nullptr ? "/tmp" : home) + "/.cache";
    return base + "/decoderctl/discovery.json";
}

std::string keepFoundCameras(const Discovery& discovery, const std::string& file) {
    std::error_code ignored; // open() reports what is wrong
    std::filesystem::create_directories(std::filesystem::path(file).parent_path(), ignored);
    const std::string beside = file + "." + std::to_string(getpid());
    const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return systemError(beside);
    }
    const std::string text =
        discoveryJson(discovery).dump(1, ' ', false, json::error_handler_t::replace) + '\n';
    const bool written = writeAll(fd, text);
    const std::string mistake = written ? "" : systemError(beside);
    close(fd);
    if (written && rename(beside.c_str(), file.c_str()) == 0) {
        return "";
    }
    const std::string why = mistake.empty() ? systemError(file) : mistake;
    unlink(beside.c_str());
    return why;
}

std::vector<Camera> readFoundCameras(const std::string& file) {
    const std::string text = readOwnFile(file);
    std::vector<Camera> cameras;
    try {
        const json whole = json::parse(text);
        for (const json& camera : whole.at("cameras")) {
            cameras.push_back(readCamera(camera));
        }
    } catch (const json::exception&) {
        throw std::runtime_error(file + " is damaged: run decoderctl discover again");
    }
    return cameras;
}

namespace {

// The address of the camera's sub stream when the main one is taken without a profile's name.
std::string subUrlBeside(const Camera& camera, const CameraStream& main, const std::string& profile) {
    const CameraStream* const sub = profile.empty() ? chooseStream(camera, "sub") : nullptr;
    const bool beside = sub != nullptr && sub->url != main.url && sub->profile.source == main.profile.source;
    return beside ? sub->url : "";
}

} // namespace

SourceToAdd sourceFromDiscovery(const std::vector<Camera>& cameras, int number, const std::string& profile) {
    const auto found = std::ranges::find(cameras, number, &Camera::number);
    if (found == cameras.end()) {
        throw std::runtime_error("the last search found " + std::to_string(cameras.size()) +
                                 " cameras, and none has the number " + std::to_string(number));
    }
    if (found->state != CameraState::Ready) {
        const bool locked =
            found->state == CameraState::NeedsPassword || found->state == CameraState::WrongPassword;
        throw std::runtime_error(
            "camera " + std::to_string(number) + ' ' + libcommon::printable(stateText(*found)) +
            (locked ? ": run decoderctl discover --user NAME --password-stdin first" : ""));
    }
    const CameraStream* const stream = chooseStream(*found, profile);
    if (stream == nullptr) {
        throw std::runtime_error("camera " + std::to_string(number) + " has no profile \"" + profile +
                                 "\"; it has: " + profileList(*found));
    }
    return {libcommon::printable(found->name), stream->url, subUrlBeside(*found, *stream, profile)};
}
