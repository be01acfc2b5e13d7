// The sound of several players and their one device, which is a file here.
#include "appliance/players/sound/sound_output.h"

#include "appliance/players/decoding/gst_start.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

namespace player {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr double amplitude = 30'000;
constexpr int largestStep = 2000; // a tone of 440 Hz and this amplitude changes by 1728

// A player with sound: a thread passes a tone in, as a decoder does. What the output's thread uses is never destroyed.
class Source {
public:
    Source() {
        sink_.showing = [&showing = showing_] { return showing.load(); };
        EXPECT_TRUE(output_.start());
        feeding_ = std::thread([this] { feed(); });
    }
    ~Source() {
        leave();
        done_ = true;
        feeding_.join();
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    void show() { showing_ = true; }
    void leave() {
        showing_ = false;
        output_.end(30'000);
    }
    bool playing() const { return output_.playing(); }
    bool becomes(bool playing, int patienceMs = 30'000) const {
        const std::int64_t until = gettimeusec() + std::int64_t{1000} * patienceMs;
        while (output_.playing() != playing && gettimeusec() < until)
            std::this_thread::sleep_for(milliseconds(5));
        return output_.playing() == playing;
    }

private:
    void feed() {
        std::size_t position = 0;
        auto due = std::chrono::steady_clock::now();
        while (!done_) {
            std::vector<SoundFrame> frames(soundRate / 50);
            for (SoundFrame& frame : frames) {
                const double angle = 2 * M_PI * 440 * static_cast<double>(position++) / soundRate;
                frame.left = static_cast<std::int16_t>(std::lround(amplitude * std::cos(angle)));
                frame.right = frame.left;
            }
            output_.put(frames.data(), frames.size());
            due += milliseconds(20);
            std::this_thread::sleep_until(due);
        }
    }

    std::atomic<bool>& showing_ = *new std::atomic<bool>(false);
    StreamSink& sink_ = *new StreamSink;
    SoundOutput& output_ = *new SoundOutput(sink_);
    std::atomic<bool> done_{false};
    std::thread feeding_;
};

// The appliance's root is read once in a process.
class SoundOfPlayers : public testing::Test {
protected:
    SoundOfPlayers() {
        static const std::string root = [] {
            char folder[] = "/tmp/sound-XXXXXX";
            const std::string made = mkdtemp(folder);
            setenv("APPLIANCE_ROOT", folder, 1);
            setenv("LIBCOMMON_LOG", (made + "/log").c_str(), 1);
            return made;
        }();
        root_ = root;
        fs::create_directories(root_ / "etc/decoder");
        fs::create_directories(root_ / "run/decoder");
        configure();
        startGStreamer(GST_PLUGIN_FOLDER, {"app"});
    }
    ~SoundOfPlayers() override { fs::remove_all(root_); }

    std::string device() const { return root_ / "samples"; }
    void configure(const std::string& more = "") const {
        std::ofstream(root_ / "etc/decoder/decoder.conf")
            << "[Sound]\nDevice = file:" << device() << "\n" + more;
    }
    std::vector<SoundFrame> heard() const {
        std::ifstream file(device(), std::ios::binary);
        std::vector<SoundFrame> frames(fs::exists(device()) ? fs::file_size(device()) / sizeof(SoundFrame)
                                                            : 0);
        file.read(reinterpret_cast<char*>(frames.data()),
                  static_cast<std::streamsize>(frames.size() * sizeof(SoundFrame)));
        return frames;
    }
    // The largest change from one sample to the next, from silence to silence.
    static int step(const std::vector<SoundFrame>& frames) {
        int largest = 0;
        SoundFrame last;
        for (const SoundFrame& frame : frames) {
            largest = std::max(largest, std::abs(frame.left - last.left));
            last = frame;
        }
        return std::max(largest, std::abs(int{last.left}));
    }
    // The highest of the newest samples.
    int loudness() const {
        const std::vector<SoundFrame> frames = heard();
        int highest = 0;
        for (std::size_t at = frames.size() - std::min<std::size_t>(frames.size(), soundRate / 100);
             at < frames.size(); ++at)
            highest = std::max(highest, std::abs(int{frames[at].left}));
        return highest;
    }
    bool loudnessBecomes(double lowest, double highest) const {
        const std::int64_t until = gettimeusec() + 30'000'000;
        const auto fits = [&] {
            const int now = loudness();
            return now >= lowest && now <= highest;
        };
        while (!fits() && gettimeusec() < until)
            std::this_thread::sleep_for(milliseconds(10));
        return fits();
    }
    bool isLoud() const { return loudnessBecomes(amplitude * 0.97, amplitude); }
    std::string log() const {
        std::ifstream file(root_ / "log");
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    fs::path root_;
};

TEST_F(SoundOfPlayers, PlaysOnlyWhileThePlayerShows) {
    Source source;
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_FALSE(source.playing());
    source.show();
    EXPECT_TRUE(isLoud());
    source.leave();
    EXPECT_FALSE(source.playing());
    EXPECT_EQ(loudness(), 0);
    EXPECT_LE(step(heard()), largestStep);
}

TEST_F(SoundOfPlayers, SwitchesWithoutAJumpAndNeverPlaysTwo) {
    constexpr int switches = 10;
    auto current = std::make_unique<Source>();
    current->show();
    ASSERT_TRUE(current->becomes(true));
    for (int i = 0; i < switches; ++i) {
        auto next = std::make_unique<Source>();
        EXPECT_TRUE(isLoud());
        next->show(); // both show for a moment
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_FALSE(next->playing()) << "the other one plays";
        current->leave();
        EXPECT_FALSE(current->playing());
        ASSERT_TRUE(next->becomes(true));
        current = std::move(next);
    }
    EXPECT_TRUE(isLoud());
    current->leave();
    const std::vector<SoundFrame> frames = heard();
    std::printf(
        "%d switches, %zu samples; largest change from one sample to the next: %d (the tone's own: 1728)\n",
        switches, frames.size(), step(frames));
    EXPECT_LE(step(frames), largestStep);
}

TEST_F(SoundOfPlayers, FollowsTheSettingsWhileItPlays) {
    Source source;
    source.show();
    ASSERT_TRUE(isLoud());
    const std::int64_t begin = gettimeusec();
    ASSERT_TRUE(sound::setMuted(true));
    EXPECT_TRUE(loudnessBecomes(0, 0));
    std::printf("from mute to silence: %.0f ms\n", static_cast<double>(gettimeusec() - begin) / 1000);
    ASSERT_TRUE(sound::setMuted(false));
    EXPECT_TRUE(isLoud());
    ASSERT_TRUE(sound::setVolume(50));
    EXPECT_TRUE(loudnessBecomes(amplitude * 0.12, amplitude * 0.13));
    configure("Enabled = no\n");
    EXPECT_TRUE(source.becomes(false));
    configure();
    EXPECT_TRUE(source.becomes(true));
    EXPECT_TRUE(isLoud());
    source.leave();
    EXPECT_LE(step(heard()), largestStep);
}

TEST_F(SoundOfPlayers, ChangesTheDeviceWhileItPlays) {
    Source source;
    source.show();
    ASSERT_TRUE(isLoud());
    const std::string other = root_ / "other";
    std::ofstream(root_ / "etc/decoder/decoder.conf") << "[Sound]\nDevice = file:" << other << "\n";
    const std::int64_t until = gettimeusec() + 30'000'000;
    while (!fs::exists(other) && gettimeusec() < until)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_TRUE(fs::exists(other));
    EXPECT_EQ(loudness(), 0) << "the first one faded out";
    EXPECT_LE(step(heard()), largestStep);
}

TEST_F(SoundOfPlayers, DeviceThatIsMissingIsLoggedOnceAndTriedAgain) {
    std::ofstream(root_ / "etc/decoder/decoder.conf") << "[Sound]\nDevice = file:/no/such/folder\n";
    Source source;
    source.show();
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_FALSE(source.playing());
    std::ofstream(root_ / "etc/decoder/decoder.conf") << "[Sound]\nDevice = file:/no/such/folder/either\n";
    std::this_thread::sleep_for(milliseconds(600));
    configure();
    EXPECT_TRUE(isLoud()) << "another name is tried at once";
    const std::string text = log();
    EXPECT_NE(text.find("no sound device"), std::string::npos) << text;
    EXPECT_EQ(text.find("no sound device"), text.rfind("no sound device")) << text;
}

} // namespace
} // namespace player
