#include "appliance/players/showing/player_options.h"

#include "appliance/front/option_letters.h"
#include "appliance/players/showing/exit_code.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <string_view>
#include <strings.h>
#include <utility>
#include <vector>

namespace player {
namespace {

constexpr unsigned forMjpeg = 1, forUnicast = 2, forMulticast = 4, forMpeg4 = 8;
constexpr unsigned forHttp = forMjpeg | forUnicast, forAll = 15;

struct Option {
    char letter;
    const char* value; // what the help calls its value; null: it takes none
    unsigned kinds;    // the players that have it
    const char* help;
};

// clang-format off
constexpr std::array<Option, 20> knownOptions{{
    {'u', "USER",     forAll,                 "user name for the encoder"},
    {'p', "PASSWORD", forAll,                 "password for the encoder"},
    {'e', nullptr,    forHttp,                "HTTPS"},
    {'m', "MODE",     forAll,                 "video mode of the screen: pal or ntsc (default pal)"},
    {'o', "OUTPUT",   forAll,                 "where to show the picture: tv, the appliance's screen"},
    {'n', "INDEX",    forAll,                 "index of the source, stored with each picture (default 0)"},
    {'v', nullptr,    forAll,                 "log more"},
    {'r', "MS",       forAll,                 "time limit in milliseconds for the first picture and "
                                              "between two pictures; 0: none (default 10000)"},
    {'w', "MS",       forAll,                 "time limit in milliseconds for the supervisor's release from a "
                                              "barrier; 0: none (default 60000)"},
    {'a', nullptr,    forMjpeg,               "play the encoder's audio"},
    {'P', "PORT",     forHttp | forMpeg4,     "port of the encoder"},
    {'t', "OPTIONS",  forHttp,                "stream options: the query of the request, after the ?"},
    {'f', nullptr,    forAll,                 "turn the picture by 180 degrees"},
    {'i', "FIELDS",   forAll,                 "interlaced pictures: a: smooth those that show it, i: smooth "
                                              "all, p or empty: none"},
    {'q', "PORT",     forMpeg4,               "receive RTP on this UDP port and RTCP on the next (65535: any)"},
    {'c', "NUMBER",   forMpeg4,               "input of the encoder, 0 for the quad view (default 1)"},
    {'M', "TYPE",     forMpeg4,               "rtsp-unicast, rtsp-multicast, rtsp-tcp or rtsp-http"},
    {'H', "CONNECT",  forMpeg4,               "http, http-auth, https or auto: with or without credentials, TLS"},
    {'A', nullptr,    forAll,                 "run alone, without a supervisor"},
    {'h', nullptr,    forAll,                 "this help"},
}};
// clang-format on

// The front of the players parses the command line with these letters, too.
constexpr bool frontKnowsTheLetters() {
    std::size_t withValue = 0;
    for (const Option& option : knownOptions) {
        if ((front::lettersWithValue.find(option.letter) != std::string_view::npos) !=
            (option.value != nullptr))
            return false;
        withValue += option.value != nullptr ? 1 : 0;
    }
    return withValue == front::lettersWithValue.size();
}
static_assert(frontKnowsTheLetters());

unsigned bitOf(Kind kind) {
    switch (kind) {
    case Kind::mjpeg:
        return forMjpeg;
    case Kind::unicast:
        return forUnicast;
    case Kind::multicast:
        return forMulticast;
    case Kind::mpeg4:
        return forMpeg4;
    }
    return 0;
}

const char* purposeOf(Kind kind) {
    switch (kind) {
    case Kind::mjpeg:
        return "Plays an encoder's motion JPEG stream on the decoder's screen.";
    case Kind::unicast:
        return "Plays an encoder's MPEG-2 stream over HTTP on the decoder's screen.";
    case Kind::multicast:
        return "Plays an MPEG-2 multicast on the decoder's screen.";
    case Kind::mpeg4:
        return "Plays an encoder's MPEG-4 or H.264 stream over RTSP on the decoder's screen.";
    }
    return "";
}

const char* argumentsOf(Kind kind) {
    return kind == Kind::multicast ? "GROUP PORT [AUDIOGROUP AUDIOPORT]" : "HOST";
}

void printHelp(Kind kind) {
    std::printf("%s\nUsage: %s [OPTION]... %s\n\nOptions:\n", purposeOf(kind), programName(kind),
                argumentsOf(kind));
    for (const Option& option : knownOptions)
        if ((option.kinds & bitOf(kind)) != 0)
            std::printf("  -%c %-9s %s\n", option.letter, option.value == nullptr ? "" : option.value,
                        option.help);
    std::printf(
        "  --help, --version\n\nExit status: 0 asked to end, 2 wrong use, 11 no picture in time, 14 the "
        "stream ended,\n23 no new picture came in time, 25 the supervisor did not release the player in "
        "time.\n");
}

// Parses one command line.
class Parser {
public:
    Parser(Kind kind, int argc, char** argv) : argc_(argc), argv_(argv) {
        options_.kind = kind;
        options_.port = kind == Kind::mpeg4 ? 554 : 80;
    }
    ParsedOptions run();

private:
    bool takeLetter(int letter);
    bool take(const Option& option, char* value);
    bool takeArguments();
    bool finish();
    bool mistake(const char* format, ...) __attribute__((format(printf, 2, 3)));
    template<class Number>
    bool number(std::string_view what, const char* text, long lowest, long highest, Number& out);
    bool transportNamed(const char* name);
    bool connectModeNamed(const char* name);
    bool interlaceNamed(const char* name);

    int argc_;
    char** argv_;
    PlayerOptions options_;
    std::vector<const char*> bare_; // arguments that are not options
    bool portGiven_ = false;
    bool connectModeGiven_ = false;
};

bool Parser::mistake(const char* format, ...) {
    std::fprintf(stderr, "%s: ", programName(options_.kind));
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "\nTry %s --help.\n", programName(options_.kind));
    return false;
}

template<class Number>
bool Parser::number(std::string_view what, const char* text, long lowest, long highest, Number& out) {
    long value = 0;
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, value);
    if (error != std::errc{} || stop != end || value < lowest || value > highest)
        return mistake("%.*s \"%s\" is not a number from %ld to %ld", static_cast<int>(what.size()),
                       what.data(), text, lowest, highest);
    out = static_cast<Number>(value);
    return true;
}

bool Parser::transportNamed(const char* name) {
    using streams::RtspTransport;
    constexpr std::array<std::pair<const char*, RtspTransport>, 4> names{
        {{"rtsp-unicast", RtspTransport::unicast},
         {"rtsp-multicast", RtspTransport::multicast},
         {"rtsp-tcp", RtspTransport::tcp},
         {"rtsp-http", RtspTransport::http}}};
    for (const auto& [known, transport] : names)
        if (strcasecmp(name, known) == 0) {
            options_.transport = transport;
            return true;
        }
    return mistake("-M \"%s\" is not a stream type of this player", name);
}

bool Parser::connectModeNamed(const char* name) {
    const auto is = [name](const char* known) { return strcasecmp(name, known) == 0; };
    connectModeGiven_ = true;
    options_.https = is("https");
    options_.withCredentials = is("http-auth") || is("https");
    return is("auto") || is("http") || options_.withCredentials ||
           mistake("-H \"%s\" is not a connect mode", name);
}

bool Parser::interlaceNamed(const char* name) {
    switch (name[0]) {
    case 'a':
        options_.interlace = Interlace::automatic;
        break;
    case 'i':
        options_.interlace = Interlace::smoothed;
        break;
    default: // "p", an empty value, and any other word that an encoder has for progressive pictures
        options_.interlace = Interlace::asItIs;
    }
    return true;
}

// Overwrites a secret in the visible command line.
std::string takeSecret(char* value) {
    std::string secret = value;
    std::memset(value, 0, secret.size());
    if (!secret.empty())
        value[0] = '*';
    return secret;
}

bool Parser::take(const Option& option, char* value) {
    switch (option.letter) {
    case 'u':
        options_.user = takeSecret(value);
        return true;
    case 'p':
        options_.password = takeSecret(value);
        return true;
    case 'e':
        return options_.https = true;
    case 'm':
        if (const auto mode = screen::videoModeByName(value)) {
            options_.mode = *mode;
            return true;
        }
        return mistake("-m \"%s\" is not a video mode: pal or ntsc", value);
    case 'o':
        return std::strcmp(value, "tv") == 0 || mistake("-o \"%s\": the only output is tv", value);
    case 'n':
        return number("-n", value, 0, INT_MAX, options_.source);
    case 'v':
        return options_.verbose = true;
    case 'r':
        return number("-r", value, 0, 3'600'000, options_.patienceMs);
    case 'w':
        return number("-w", value, 0, 3'600'000, options_.releaseMs);
    case 'a':
        return options_.audio = true;
    case 'P':
        portGiven_ = true;
        return number("-P", value, 1, 65535, options_.port);
    case 't':
        options_.streamOptions = value;
        return true;
    case 'f':
        return options_.turned = true;
    case 'i':
        return interlaceNamed(value);
    case 'q':
        return number("-q", value, 1, 65535, options_.udpPort);
    case 'c':
        return number("-c", value, 0, 1000, options_.sourceNumber);
    case 'M':
        return transportNamed(value);
    case 'H':
        return connectModeNamed(value);
    case 'A':
        return options_.alone = true;
    default:
        return false;
    }
}

bool Parser::takeArguments() {
    const std::size_t count = bare_.size();
    if (options_.kind != Kind::multicast) {
        if (count != 1 || bare_[0][0] == '\0')
            return mistake("one host is needed, %zu arguments were given", count);
        options_.host = bare_[0];
        return true;
    }
    if (count != 2 && count != 4)
        return mistake(
            "a group and its port are needed, optionally the same for audio; %zu arguments were given",
            count);
    options_.host = bare_[0];
    if (!number("port", bare_[1], 1, 65535, options_.port))
        return false;
    if (count == 2)
        return true;
    options_.audioHost = bare_[2];
    return number("audio port", bare_[3], 1, 65535, options_.audioPort);
}

bool Parser::finish() {
    if (options_.udpPort == 65535) // the supervisor passes this for "none"
        options_.udpPort = 0;
    if (options_.https && !portGiven_ && options_.kind != Kind::mpeg4)
        options_.port = 443;
    if (options_.kind == Kind::mpeg4 && connectModeGiven_ && !options_.withCredentials) {
        options_.user.clear();
        options_.password.clear();
    }
    return true;
}

ParsedOptions Parser::run() {
    // "-": getopt returns bare arguments in their place, even when POSIXLY_CORRECT is set. ":": it
    // distinguishes a missing value from an unknown option.
    std::string letters = "-:";
    for (const Option& option : knownOptions)
        if ((option.kinds & bitOf(options_.kind)) != 0)
            letters += std::string(1, option.letter) + (option.value == nullptr ? "" : ":");
    const std::array<option, 3> longOptions{{{"help", no_argument, nullptr, 'h'},
                                             {"version", no_argument, nullptr, 'V'},
                                             {nullptr, 0, nullptr, 0}}};
    optind = 0; // starts again for a second command line in one process
    opterr = 0;
    for (;;) {
        const int letter = getopt_long(argc_, argv_, letters.c_str(), longOptions.data(), nullptr);
        if (letter == -1)
            break;
        if (letter == 'h') {
            printHelp(options_.kind);
            return {std::nullopt, static_cast<int>(ExitCode::asked)};
        }
        if (letter == 'V') {
            std::printf("%s %s\n", programName(options_.kind), HOUSE_VERSION);
            return {std::nullopt, static_cast<int>(ExitCode::asked)};
        }
        if (!takeLetter(letter))
            return {std::nullopt, static_cast<int>(ExitCode::usage)};
    }
    bare_.insert(bare_.end(), argv_ + optind, argv_ + argc_); // after a "--"
    if (!takeArguments() || !finish())
        return {std::nullopt, static_cast<int>(ExitCode::usage)};
    return {options_, 0};
}

// One result of getopt.
bool Parser::takeLetter(int letter) {
    if (letter == 1) {
        bare_.push_back(optarg);
        return true;
    }
    if (letter == ':')
        return mistake("-%c needs a value", optopt);
    const auto known = std::find_if(knownOptions.begin(), knownOptions.end(),
                                    [letter](const Option& option) { return option.letter == letter; });
    if (known != knownOptions.end())
        return take(*known, optarg);
    return optopt != 0 ? mistake("there is no option -%c", optopt)
                       : mistake("there is no option %s", argv_[optind - 1]);
}

} // namespace

const char* programName(Kind kind) {
    switch (kind) {
    case Kind::mjpeg:
        return "mjpeg_player";
    case Kind::unicast:
        return "unicastplayer";
    case Kind::multicast:
        return "multicastplayer";
    case Kind::mpeg4:
        return "mpeg4player";
    }
    return "";
}

ParsedOptions parseOptions(Kind kind, int argc, char** argv) {
    return Parser(kind, argc, argv).run();
}

} // namespace player
