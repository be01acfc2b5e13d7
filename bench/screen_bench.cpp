// screen_bench: how fast a player answers when it is asked for another source, and how long nothing new is on the screen,
// taken from the pixels of a display. All players are measured the same way, in turn.
//
//   answer  from the request to the first picture of the new source
//   gap     from the last picture of the old source to the first of the new one
//   alarm   from `decoderctl alarm` to a picture of its source with its text
//
// Two encoders send test pictures whose mark tells source and number. They send key pictures at their own time only, and
// one client watches each of them all the time: no newcomer gets a key picture out of turn, and each side asks at the same
// moments between two key pictures of the new source.
#include "bench/log_time.h"
#include "bench/samples.h"
#include "bench/screen/alarm_text.h"
#include "bench/screen/decoder_side.h"
#include "bench/screen/key_pictures.h"
#include "bench/screen/pixels.h"
#include "bench/screen/players.h"
#include "bench/screen/streams.h"
#include "bench/switching.h"
#include "tests/appliance/isolation.h"
#include "tests/support/programs.h"
#include "tests/support/x_server.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <random>

namespace {

using appliance::Appliance;
using bench::clockMs;
using x_server::XServer;

constexpr int skipped = 77;
constexpr double patienceMs = 20'000;
constexpr int fps = 25;
constexpr const char* ourCold = "ours-cold";
constexpr const char* ourWarm = "ours-warm";

bool isOurs(const std::string& side) {
    return side == ourCold || side == ourWarm;
}

struct Options {
    std::string kind = "rtsp-unicast";
    std::string codec = "h264";
    int width = 720;
    int height = 576;
    int gop = fps;
    int switches = 8;
    int blocks = 2;
    int alarms = 0;
    std::vector<std::string> sides;
    bool assertPictures = false;
};

// A screen and the side that shows on it.
struct Stage {
    std::string name;
    std::unique_ptr<XServer> server;
    std::unique_ptr<bench::Pixels> pixels;
    std::unique_ptr<bench::Side> side;
    int failures = 0; // in a row
};

// A folder for the peers' files.
class Folder {
public:
    Folder() {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_ = "/tmp/screen-bench-XXXXXX";
};

class Bench {
public:
    explicit Bench(const Options& options) : options_(options) {}

    bool prepare();
    // Returns how many of our switches showed no picture.
    int run();
    int measureAlarms();

private:
    void addEncoders();
    std::unique_ptr<bench::KeyPictures> watch(const std::string& host) const;
    bool detectBoth();
    std::string whyMissing(const std::string& name) const;
    Stage makeStage(const std::string& name);
    static std::string whyNotShown(Stage& stage, bench::Watcher& watcher);
    void measureBlock(Stage& stage, int block);
    bool measureSwitch(Stage& stage, bench::Watcher& watcher, int turn, int source);
    double settleMs(int turn, int turns, int source);

    const Options& options_;
    Appliance decoder_; // first: it isolates this process
    Folder folder_;
    bench::Playing playing_;
    std::vector<std::unique_ptr<bench::KeyPictures>>
        keys_; // of each encoder; null: each picture is one, or nobody can tell
    std::mt19937 random_{1};
    int failed_ = 0;
};

void Bench::addEncoders() {
    for (int source = 0; source < 2; ++source) {
        decoder_.addHost(source == 0 ? "Front door" : "Garage",
                         {"--kinds", options_.kind, "--codec", options_.codec, "--width",
                          std::to_string(options_.width), "--height", std::to_string(options_.height),
                          "--gop", std::to_string(options_.gop), "--fps", std::to_string(fps), "--multicast",
                          "239.255." + std::to_string(source) + ".1", "--no-key-on-join"});
        playing_.hosts.push_back(decoder_.encoder(static_cast<std::size_t>(source)).address());
    }
}

// An encoder without clients would send a key picture to the first one: this one stays.
std::unique_ptr<bench::KeyPictures> Bench::watch(const std::string& host) const {
    const std::string pipeline = bench::pipelineOf(options_.kind, options_.codec, host);
    if (options_.kind == "mjpeg" || pipeline.empty())
        return nullptr; // each picture is a key picture; the guide's multicast runs all the time
    return std::make_unique<bench::KeyPictures>(pipeline.substr(0, pipeline.rfind(" ! ")));
}

// The first selection of a source detects its encoder, which is not measured here.
bool Bench::detectBoth() {
    for (int source = 0; source < 2; ++source) {
        if (source > 0)
            decoder_.ctl({"select", std::to_string(source)});
        if (!decoder_.showsMoving(source)) {
            std::cerr << decoder_.log() << "screen_bench: no picture of source " << source << '\n';
            return false;
        }
    }
    decoder_.ctl({"disconnect"});
    return true;
}

bool Bench::prepare() {
    decoder_.setManual();
    decoder_.set("Screen.Fit", "fill");     // the mark is read where the picture covers the screen
    decoder_.set("Alarm.DisplayTime", "3"); // AlarmText knows it
    decoder_.set("Warm.Sources", "all");    // without the service that keeps them there are none
    addEncoders();
    playing_.kind = options_.kind;
    playing_.codec = options_.codec;
    playing_.width = options_.width;
    playing_.height = options_.height;
    playing_.folder = folder_.path();
    std::filesystem::permissions(playing_.folder,
                                 std::filesystem::perms::all); // one peer runs as another user
    for (const std::string& host : playing_.hosts)
        keys_.push_back(watch(host));
    decoder_.start();
    bench::joinAppliance(decoder_); // only now, so that the programs started above do not inherit it
    return detectBoth();
}

std::string Bench::whyMissing(const std::string& name) const {
    if (name == ourCold)
        return "";
    if (name != ourWarm)
        return bench::whyNoPeer(name, playing_);
    const bool keeps = decoder_.ctl({"parameters"}).output.find("Warm.Sources") != std::string::npos;
    return keeps ? "" : "no service keeps sources open yet";
}

Stage Bench::makeStage(const std::string& name) {
    Stage stage;
    stage.name = name;
    stage.server = std::make_unique<XServer>(options_.width, options_.height, true);
    stage.pixels = std::make_unique<bench::Pixels>(stage.server->pixelFile());
    if (isOurs(name)) {
        stage.side = std::make_unique<bench::DecoderSide>(decoder_, *stage.server, name == ourWarm);
        return stage;
    }
    bench::Playing playing = playing_;
    playing.display = stage.server->display();
    stage.side = bench::makePeer(name, playing);
    return stage;
}

// At least a moment, and then until a part of the key pictures' period is over: each side has the same parts. The parts are
// counted from a key picture of the new source, or from anywhere where that is not known.
double Bench::settleMs(int turn, int turns, int source) {
    constexpr double moment = 300;
    const double period = 1000.0 * (options_.kind == "mjpeg" ? 1 : options_.gop) / fps;
    const auto& keys = keys_[static_cast<std::size_t>(source)];
    const auto last = keys == nullptr ? std::nullopt : keys->last();
    if (last)
        return bench::untilPhase(clockMs(), *last, period, (turn + 0.5) / turns * period, moment);
    const double share = (turn + std::uniform_real_distribution(0.0, 1.0)(random_)) / turns;
    return moment + share * period;
}

bool Bench::measureSwitch(Stage& stage, bench::Watcher& watcher, int turn, int source) {
    watcher.watch(clockMs() + settleMs(turn, options_.switches, source));
    const double asked = clockMs();
    const double askedAt = bench::secondsOfDay();
    stage.side->show(source);
    // While the answer is on its way, the old picture goes on: the watcher keeps its last time.
    double lastOld = watcher.lastTime();
    const double until = asked + patienceMs;
    while (const auto seen = watcher.await(-1, until)) {
        if (watcher.last()->source == source) {
            bench::tellSample("answer", stage.name, *seen - asked);
            bench::tellSample("gap", stage.name, *seen - lastOld);
            stage.side->shown();
            if (isOurs(stage.name))
                bench::tellParts(decoder_, stage.name, askedAt, *seen - asked);
            return true;
        }
        lastOld = *seen;
    }
    stage.side->shown();
    return false;
}

// Lets it show its first picture.
std::string Bench::whyNotShown(Stage& stage, bench::Watcher& watcher) {
    try {
        stage.side->show(0);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return watcher.await(0, clockMs() + patienceMs) ? "" : "it shows no picture of this kind";
}

void Bench::measureBlock(Stage& stage, int block) {
    bench::Watcher watcher(*stage.pixels);
    if (const std::string why = whyNotShown(stage, watcher); !why.empty()) {
        bench::tellMissing("answer", stage.name, why);
        ++stage.failures;
        failed_ += isOurs(stage.name) ? 1 : 0;
        stage.side->end();
        return;
    }
    stage.side->shown();
    const int first = options_.switches * block / options_.blocks;
    const int end = options_.switches * (block + 1) / options_.blocks;
    for (int i = first; i < end && stage.failures < 2; ++i) {
        const bool good = measureSwitch(stage, watcher, i, (i - first + 1) % 2);
        stage.failures = good ? 0 : stage.failures + 1;
        failed_ += !good && isOurs(stage.name) ? 1 : 0;
        if (!good)
            bench::tellMissing("answer", stage.name, "no picture within 20 s");
    }
    stage.side->end();
}

int Bench::run() {
    std::vector<Stage> stages;
    for (const std::string& name : options_.sides) {
        if (const std::string why = whyMissing(name); !why.empty())
            bench::tellMissing("answer", name, why);
        else
            stages.push_back(makeStage(name));
    }
    for (int block = 0; block < options_.blocks; ++block)
        for (Stage& stage : stages)
            if (stage.failures == 0)
                measureBlock(stage, block);
    return failed_;
}

// The text's pixels are learned from one alarm that is not measured.
int Bench::measureAlarms() {
    int failures = 0;
    for (const std::string& name : options_.sides) {
        if (!isOurs(name))
            continue;
        if (const std::string why = whyMissing(name); !why.empty()) {
            bench::tellMissing("alarm", name, why);
            continue;
        }
        Stage stage = makeStage(name);
        bench::Watcher watcher(*stage.pixels);
        if (const std::string why = whyNotShown(stage, watcher); !why.empty()) {
            bench::tellMissing("alarm", name, why);
            stage.side->end();
            ++failures;
            continue;
        }
        bench::AlarmText text(*stage.pixels, decoder_, watcher);
        for (int i = 0; text.isKnown() && i < options_.alarms; ++i) {
            watcher.watch(clockMs() + settleMs(i, options_.alarms, 1));
            if (const auto time = text.raise(patienceMs))
                bench::tellSample("alarm", name, *time);
            else
                ++failures;
        }
        if (!text.isKnown())
            bench::tellMissing("alarm", name, "the text of an alarm was not found on the screen");
        failures += text.isKnown() ? 0 : 1;
        stage.side->end();
    }
    return failures;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    options.sides = bench::peerNames();
    options.sides.insert(options.sides.begin(), {ourWarm, ourCold});
    CLI::App app{"Measures on a display's pixels how fast players switch between two sources."};
    app.add_option("--kind", options.kind, "kind of stream")->check(CLI::IsMember(bench::kindsOfStream()));
    app.add_option("--codec", options.codec, "codec of RTSP")->check(CLI::IsMember({"h264", "mpeg4"}));
    app.add_option("--width", options.width, "width of pictures and screen")->check(CLI::Range(160, 1920));
    app.add_option("--height", options.height, "height of pictures and screen")->check(CLI::Range(120, 1080));
    app.add_option("--gop", options.gop, "pictures from one key picture to the next")
        ->check(CLI::Range(1, 250));
    app.add_option("--switches", options.switches, "switches of each side")->check(CLI::Range(1, 1000));
    app.add_option("--blocks", options.blocks, "turns that each side takes for them")
        ->check(CLI::Range(1, 100));
    app.add_option("--alarms", options.alarms, "measure that many alarms instead")
        ->check(CLI::Range(0, 1000));
    app.add_option("--sides", options.sides, "ours-warm, ours-cold, mpv, mpv-told, gst-launch, vlc, vlc-told")
        ->delimiter(',');
    app.add_flag("--assert", options.assertPictures, "exit 1 when one of our switches showed no picture");
    CLI11_PARSE(app, argc, argv);
    std::string reason = XServer::whyNot();
    if (reason.empty() && !appliance::isolate())
        reason = "this user may not make a network namespace";
    if (!reason.empty()) {
        std::cout << "skipped: " << reason << '\n';
        return skipped;
    }
    try {
        Bench bench(options);
        if (!bench.prepare())
            return 1;
        const int failed = options.alarms > 0 ? bench.measureAlarms() : bench.run();
        return options.assertPictures && failed > 0 ? 1 : 0;
    } catch (const std::exception& error) {
        std::cerr << "screen_bench: " << error.what() << '\n';
        return 1;
    }
}
