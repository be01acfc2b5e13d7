#include "appliance/encoder/device/encoder_options.h"

#include "appliance/serving/command_line.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <CLI/CLI.hpp>
#include <cmath>
#include <utility>

namespace {

constexpr int usageMistake = 2; // exit status
constexpr std::size_t maxInputs = 64;

constexpr std::array<std::pair<const char*, Kind>, 7> kindNames{{
    {"mjpeg", Kind::Mjpeg},
    {"mpeg2", Kind::Mpeg2},
    {"sdp", Kind::Sdp},
    {"rtsp-unicast", Kind::RtspUnicast},
    {"rtsp-multicast", Kind::RtspMulticast},
    {"rtsp-tcp", Kind::RtspTcp},
    {"rtsp-http", Kind::RtspHttp},
}};

// Option values as CLI11 reads them, before they are checked and converted.
struct Raw {
    std::vector<std::string> inputs;
    std::size_t inputCount = 0;
    std::vector<std::string> kinds;
    std::vector<std::string> faults;
    std::vector<std::string> https;
    std::string codec = "mpeg4";
    std::string sessionIds = "decimal";
    bool noKeyForNewcomer = false;
    double keyEvery = 0; // seconds; 0: not given
};

std::string kindList() {
    std::string list;
    for (const auto& [name, kind] : kindNames)
        list += (list.empty() ? "" : ", ") + std::string(name);
    return list;
}

std::string readKinds(const std::vector<std::string>& names, std::set<Kind>& kinds) {
    kinds.clear();
    for (const std::string& name : names) {
        bool known = name == "none"; // offers nothing at all
        for (const auto& [text, kind] : kindNames) {
            if (name == text) {
                kinds.insert(kind);
                known = true;
            }
        }
        if (!known)
            return "--kinds: unknown kind '" + name + "' (" + kindList() + " or none)";
    }
    return {};
}

std::string readHttps(const CLI::Option& option, const std::vector<std::string>& words, Options& options) {
    if (option.count() == 0)
        return {};
    options.httpsPort = 0;
    if (words.empty() || words.front().empty())
        return {};
    std::uint16_t port = 0;
    if (!CLI::detail::lexical_cast(words.front(), port))
        return "--https: '" + words.front() + "' is not a port";
    options.httpsPort = port;
    return {};
}

std::string readInputs(const Raw& raw, Options& options) {
    options.inputs = raw.inputs;
    const std::size_t count =
        raw.inputCount == 0 ? std::max<std::size_t>(1, raw.inputs.size()) : raw.inputCount;
    if (count < raw.inputs.size())
        return "--inputs: there are more --input options than inputs";
    if (count > maxInputs)
        return "--input: more than " + std::to_string(maxInputs) + " inputs";
    options.inputs.resize(count, "test");
    return {};
}

// Checks that need several options, or are not built into CLI11.
std::string checkTogether(const Options& options) {
    if (options.width % 2 != 0 || options.height % 2 != 0)
        return "--width and --height must be even";
    in_addr group{};
    if (inet_pton(AF_INET, options.multicastGroup.c_str(), &group) != 1 || !IN_MULTICAST(ntohl(group.s_addr)))
        return "--multicast: '" + options.multicastGroup + "' is not a multicast address";
    if (options.multicastPort % 2 != 0)
        return "--multicast-port must be even";
    if (options.track.empty() || options.track.find_first_of(" /?\r\n") != std::string::npos)
        return "--track: the name cannot have blanks or slashes";
    if (options.user.find(':') != std::string::npos)
        return "--user: a user name cannot have a colon in it";
    if (options.user.empty() && !options.password.empty())
        return "--password needs --user";
    if (options.digest && options.user.empty())
        return "--digest needs --user";
    if (options.onvif && !options.offersRtspPort() && !options.offers(Kind::Mjpeg))
        return "--onvif needs a kind of RTSP on a port, or mjpeg";
    if (options.certificateFile.empty() != options.keyFile.empty())
        return "--certificate and --key go together";
    return {};
}

void addNetworkOptions(CLI::App& app, Options& options, Raw& raw, CLI::Option*& https) {
    app.add_option("--http", options.httpPort,
                   "HTTP port, which serves RTSP too; 0, the default, is any free port");
    app.add_option("--rtsp", options.rtspPort, "one more port for RTSP; 0, the default, is any free port");
    https =
        app.add_option("--https", raw.https, "serve HTTPS too, on this port or any free one")->expected(0, 1);
    app.add_option("--control", options.controlPort,
                   "an HTTP port for /faults and /requests only, which no fault affects");
    app.add_option("--address", options.address, "local address to listen on")->capture_default_str();
    app.add_option("--max-connections", options.maxConnections,
                   "limit for connections at a time, over all ports")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    app.add_option("--user", options.user, "ask for credentials: user name");
    app.add_option("--password", options.password, "ask for credentials: password");
    app.add_flag("--digest", options.digest, "HTTP asks for Digest instead of Basic credentials");
    app.add_flag("--onvif", options.onvif,
                 "be an ONVIF device: answer searches of the network and SOAP requests");
    app.add_option("--certificate", options.certificateFile, "TLS certificate, PEM; default: made at start");
    app.add_option("--key", options.keyFile, "private key of the certificate, PEM");
}

void addPictureOptions(CLI::App& app, Options& options, Raw& raw) {
    app.add_option("--input", raw.inputs,
                   "test, a file, /dev/videoN or a URL (rtsp, http, ...); repeat for several inputs")
        ->allow_extra_args(false);
    app.add_option("--inputs", raw.inputCount, "number of inputs; those without --input are test pictures")
        ->check(CLI::Range(1, 64));
    app.add_option("--name", options.name, "the encoder's name, shown in test pictures")
        ->capture_default_str();
    app.add_option("--width", options.width, "width of the pictures")
        ->check(CLI::Range(64, 1920))
        ->capture_default_str();
    app.add_option("--height", options.height, "height of the pictures")
        ->check(CLI::Range(48, 1080))
        ->capture_default_str();
    app.add_option("--fps", options.fps, "pictures per second")
        ->check(CLI::Range(1, 60))
        ->capture_default_str();
    app.add_option("--quality", options.quality, "quality of JPEG pictures")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    app.add_option("--mark", options.mark,
                   "number of the first input in the frame mark (the bottom strip of cells)")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    app.add_flag("--mark-all", options.markEverything,
                 "draw the frame mark over all inputs, not only test pictures");
    app.add_flag("--audio", options.audio, "offer sound (a test tone)");
}

void addCodecOptions(CLI::App& app, Options& options, Raw& raw) {
    app.add_option("--codec", raw.codec, "codec of RTSP: mpeg4 (MPEG-4 Visual) or h264")
        ->check(CLI::IsMember(std::set<std::string>{"mpeg4", "h264"}))
        ->capture_default_str();
    CLI::Option* gop =
        app.add_option("--gop", options.keyInterval, "pictures from one key picture to the next")
            ->check(CLI::Range(1, 250))
            ->capture_default_str();
    app.add_option("--key-every", raw.keyEvery, "seconds from one key picture to the next, instead of --gop")
        ->check(CLI::Range(0.01, 10.0))
        ->excludes(gop);
    app.add_flag("--no-key-on-join", raw.noKeyForNewcomer,
                 "a new client waits for the next regular key picture");
    app.add_option("--bitrate", options.bitrate,
                   "bit rate of the codecs, kilobits per second; 0 is constant quality")
        ->check(CLI::Range(0, 50000))
        ->capture_default_str();
    app.add_option("--multicast", options.multicastGroup,
                   "multicast group of the first input; each further input has the next group")
        ->capture_default_str();
    app.add_option("--multicast-port", options.multicastPort,
                   "even port for RTSP; the SDP guide's video is 10 above it, its sound 20 above it")
        ->check(CLI::Range(1024, 65000))
        ->capture_default_str();
    app.add_option("--track", options.track, "name of the RTSP track")->capture_default_str();
    app.add_option("--session-ids", raw.sessionIds, "form of RTSP session ids: decimal or text")
        ->check(CLI::IsMember(std::set<std::string>{"decimal", "text"}))
        ->capture_default_str();
}

void addDeviceOptions(CLI::App& app, Options& options, Raw& raw) {
    app.add_option("--kinds", raw.kinds,
                   "kinds of stream to offer, separated by commas, or none (see below); default mjpeg")
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_option("--api-version", options.apiVersion,
                   "version of the parameter CGIs; 1 is an old device without a viewer CGI")
        ->check(CLI::Range(1, 9))
        ->capture_default_str();
    app.add_option("--model", options.model, "product name to report")->capture_default_str();
    app.add_option("--rotation", options.rotation, "image rotation to report: 0, 90, 180 or 270")
        ->check(CLI::IsMember(std::set<int>{0, 90, 180, 270}));
    app.add_option("--fault", raw.faults, "simulate a fault (see below); repeatable")
        ->allow_extra_args(false);
    app.add_flag("-v", options.verbosity, "log requests to standard error; twice: connections too");
}

std::string footer() {
    return "When it listens, it prints \"http=PORT rtsp=PORT https=PORT\" on standard output (0: the "
           "port does not exist),\n"
           "with --control also \" control=PORT\". SIGINT and SIGTERM end it with exit status 0.\n\n"
           "Kinds: " +
           kindList() +
           ".\n\n"
           "Faults (to switch them later, POST a list of names to /faults from the same machine):\n" +
           faultsHelp();
}

} // namespace

CommandLine parseCommandLine(int argc, const char* const* argv) {
    CLI::App app{"A network video encoder: serves test pictures, a file, a webcam or another camera.",
                 "video-encoder"};
    Options options;
    Raw raw;
    CLI::Option* https = nullptr;
    addNetworkOptions(app, options, raw, https);
    addPictureOptions(app, options, raw);
    addCodecOptions(app, options, raw);
    addDeviceOptions(app, options, raw);
    app.footer(footer());
    if (const auto end = readCommandLine(app, HOUSE_VERSION, argc, argv))
        return {std::nullopt, *end};

    options.codec = raw.codec == "h264" ? Codec::H264 : Codec::Mpeg4;
    options.keyForNewcomer = !raw.noKeyForNewcomer;
    if (raw.keyEvery > 0)
        options.keyInterval = std::max(1, static_cast<int>(std::lround(raw.keyEvery * options.fps)));
    options.decimalSessions = raw.sessionIds == "decimal";
    std::string mistake = readHttps(*https, raw.https, options);
    if (mistake.empty())
        mistake = readInputs(raw, options);
    if (mistake.empty() && !raw.kinds.empty())
        mistake = readKinds(raw.kinds, options.kinds);
    for (const std::string& fault : raw.faults) {
        if (mistake.empty())
            mistake = options.faults.add(fault);
    }
    if (mistake.empty())
        mistake = checkTogether(options);
    if (!mistake.empty())
        return {std::nullopt, {usageMistake, "video-encoder: " + mistake + "\n"}};
    return {options, {}};
}
