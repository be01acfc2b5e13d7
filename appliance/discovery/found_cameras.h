// The result of the last search as JSON: printed by `decoderctl discover --json`, and kept for `decoderctl add`.
#pragma once

#include "appliance/discovery/discovery.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

nlohmann::json discoveryJson(const Discovery& discovery);

// The file: /run/decoder/discovery.json below the appliance root if this user may write that folder, otherwise
// decoderctl/discovery.json in the user's cache folder.
std::string foundCamerasFile();

// Writes the file, which only its owner can read. It has no password in it. Returns why it could not be written, or "".
std::string keepFoundCameras(const Discovery& discovery, const std::string& file);

// What keepFoundCameras() wrote. Throws std::runtime_error with the reason if there is none, or if it belongs to
// another user.
std::vector<Camera> readFoundCameras(const std::string& file);

// A source to add.
struct SourceToAdd {
    std::string name; // the camera's
    std::string url;
    std::string subUrl; // of its smaller stream; "": none, or a stream was chosen by name
};

// Camera `number` of the last search, and its stream that `profile` names (see chooseStream()). Throws
// std::runtime_error with what is wrong and what to do.
SourceToAdd sourceFromDiscovery(const std::vector<Camera>& cameras, int number, const std::string& profile);
