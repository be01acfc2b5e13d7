#include "appliance/discovery/discovery.h"

#include "appliance/discovery/camera_inquiry.h"
#include "appliance/discovery/network_probe.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

using std::chrono::milliseconds;

constexpr std::size_t maxAtOnce = 32;
constexpr milliseconds longestSearch(3000);
constexpr const char* servicePath = "/onvif/device_service";

// A camera with what is needed to ask it.
struct Candidate {
    Camera camera;
    WebAddress service;
    LocalNetwork network;
    std::uint32_t sender = 0;
};

Candidate candidateOf(const FoundDevice& device) {
    Candidate candidate;
    candidate.camera.endpoint = device.match.endpoint;
    candidate.camera.name = scopeValue(device.match.scopes, "name");
    candidate.camera.address = ipv4Text(device.sender);
    candidate.network = device.network;
    candidate.sender = device.sender;
    const ChosenAddress chosen = chooseAddress(device.match.addresses, device.sender, device.network);
    if (chosen.address) {
        candidate.service = *chosen.address;
        candidate.camera.service = chosen.address->url();
        candidate.camera.address = chosen.address->hostAndPort();
    } else {
        candidate.camera.state = CameraState::OtherNetwork;
        candidate.camera.reason = chosen.problem;
    }
    return candidate;
}

// Asks all of them, several at a time.
void askAll(std::vector<Candidate>& candidates, const Credentials& credentials, Moment end) {
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < candidates.size(); i = next++) {
            Candidate& one = candidates[i];
            if (!one.camera.service.empty() && std::chrono::steady_clock::now() < end) {
                inquire(one.camera, one.service, one.network, credentials, end);
            }
        }
    };
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < std::min(maxAtOnce, candidates.size()); ++i) {
        workers.emplace_back(work);
    }
}

std::string counted(std::size_t count, const char* one, const char* several) {
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

std::vector<std::string> notesOf(const ProbeResult& found) {
    std::vector<std::string> notes;
    for (const std::string& mistake : found.mistakes) {
        notes.push_back("a network was not searched: " + mistake);
    }
    if (found.tooMany) {
        notes.push_back("there are more devices than are taken (" + std::to_string(maxDevices) + ", and " +
                        std::to_string(maxDevicesOfHost) + " of one host); search one --interface at a time");
    }
    if (found.unfit > 0) {
        notes.push_back(counted(found.unfit, "answer was", "answers were") + " not understood and not used");
    }
    return notes;
}

std::vector<Candidate> search(const DiscoveryOptions& options, milliseconds time, Discovery& result) {
    const std::vector<LocalNetwork> networks = localNetworks(options.interface);
    if (networks.empty()) {
        throw std::runtime_error(options.interface.empty()
                                     ? "this machine has no network interface that can be searched"
                                     : "there is no interface \"" + options.interface +
                                           "\" with an IPv4 address");
    }
    const ProbeResult found = probeNetworks(networks, std::min(longestSearch, time * 2 / 5));
    result.notes = notesOf(found);
    std::vector<Candidate> candidates;
    for (const FoundDevice& device : found.devices) {
        candidates.push_back(candidateOf(device));
    }
    return candidates;
}

// The camera that the user named. Its network is its own address alone.
Candidate namedCandidate(const std::string& address) {
    const std::optional<WebAddress> service = readServiceUrl("http://" + address + servicePath);
    if (!service || address.find_first_of("/@?#") != std::string::npos) {
        throw std::runtime_error("\"" + address + "\" is not HOST or HOST:PORT");
    }
    Candidate candidate;
    candidate.service = *service;
    candidate.camera.service = service->url();
    candidate.camera.address = service->hostAndPort();
    const std::optional<std::uint32_t> number = ipv4Of(service->host);
    candidate.network.mask = 0xffffffff;
    candidate.network.address = number.value_or(0);
    return candidate;
}

} // namespace

Discovery discoverCameras(const DiscoveryOptions& options) {
    const milliseconds time(static_cast<long>(options.seconds * 1000));
    const Moment end = std::chrono::steady_clock::now() + time;
    Discovery result;
    SoapClient::prepareProcess();
    std::vector<Candidate> candidates;
    if (options.address.empty()) {
        candidates = search(options, time, result);
    } else {
        candidates.push_back(namedCandidate(options.address));
    }
    askAll(candidates, options.credentials, end);
    std::ranges::stable_sort(candidates, {},
                             [](const Candidate& one) { return std::pair(one.sender, one.camera.endpoint); });
    for (Candidate& candidate : candidates) {
        result.cameras.push_back(std::move(candidate.camera));
        result.cameras.back().number = static_cast<int>(result.cameras.size());
    }
    return result;
}
