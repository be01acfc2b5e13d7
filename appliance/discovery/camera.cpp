#include "appliance/discovery/camera.h"

#include <algorithm>

std::string stateText(const Camera& camera) {
    switch (camera.state) {
    case CameraState::Ready:
        return "ready";
    case CameraState::NeedsPassword:
        return "needs a user name and a password";
    case CameraState::WrongPassword:
        return "refuses the user name or password";
    case CameraState::NoAnswer:
        return "does not answer: " + camera.reason;
    case CameraState::NoStreams:
        return "has no stream that can be used: " + camera.reason;
    case CameraState::NotUnderstood:
    case CameraState::OtherNetwork:
        return camera.reason;
    case CameraState::NotAsked:
        return "was not asked, because the time was over";
    }
    return "";
}

std::vector<const CameraStream*> streamsBySize(const Camera& camera) {
    std::vector<const CameraStream*> streams;
    for (const CameraStream& stream : camera.streams) {
        if (!stream.url.empty() && stream.profile.source == camera.streams.front().profile.source) {
            streams.push_back(&stream);
        }
    }
    std::ranges::stable_sort(streams, std::greater<>(), [](const CameraStream* stream) {
        return static_cast<long long>(stream->profile.width) * stream->profile.height;
    });
    return streams;
}

const CameraStream* chooseStream(const Camera& camera, const std::string& word) {
    const std::vector<const CameraStream*> streams = streamsBySize(camera);
    for (const CameraStream& stream : camera.streams) {
        if (!word.empty() && !stream.url.empty() &&
            (stream.profile.name == word || stream.profile.token == word)) {
            return &stream;
        }
    }
    if ((word.empty() || word == "main") && !streams.empty()) {
        return streams.front();
    }
    return word == "sub" && streams.size() > 1 ? streams.back() : nullptr;
}
