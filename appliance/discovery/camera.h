// A camera that was found: what is shown of it, and what is kept for `decoderctl add`.
#pragma once

#include "appliance/discovery/messages/device_messages.h"
#include "appliance/discovery/messages/media_messages.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

enum class CameraState {
    Ready,
    NeedsPassword,
    WrongPassword,
    NoAnswer,
    NotUnderstood,
    NoStreams,
    OtherNetwork,
    NotAsked,
};

// The names in JSON, in the order of the enumeration.
constexpr std::array<const char*, 8> cameraStateNames{"ready",           "needs password", "wrong password",
                                                      "no answer",       "not understood", "no streams",
                                                      "another network", "not asked"};

struct CameraStream {
    MediaProfile profile;
    std::string url;     // without user name and password; "" if there is none that can be used
    std::string problem; // then: why
};

// All texts but `address`, `service` and `url` are as the device sent them: they may hold anything.
struct Camera {
    int number = 0;       // from 1, in the order of the addresses
    std::string endpoint; // stays the same when the address changes
    std::string name;
    std::string address; // host or host:port
    std::string service; // URL of the device service; "" if none can be used
    DeviceInformation information;
    CameraState state = CameraState::NotAsked;
    std::string reason; // why it is not ready
    std::vector<CameraStream> streams;
};

// The state as a sentence, with its reason.
std::string stateText(const Camera& camera);

// The streams of a camera's first picture that have an address, from the largest to the smallest.
std::vector<const CameraStream*> streamsBySize(const Camera& camera);

// The stream that a word names: "main" (or "") is the largest, "sub" the smallest of at least two, every other word the
// name or token of a profile. Null if there is none.
const CameraStream* chooseStream(const Camera& camera, const std::string& word);
