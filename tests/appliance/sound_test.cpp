// The sound of the decoder: of the source on the screen and of no other, at the volume that decoderctl sets.
#include "tests/appliance/appliance.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using appliance::Appliance;
using appliance::eventually;
using testing::HasSubstr;

class Sound : public testing::Test {
protected:
    Sound() {
        decoder.setManual();
        decoder.set("Sound.Device", "file:" + device());
        for (const char* name : {"Front door", "Garage"})
            decoder.addEncoder(name, {"--kinds", "mjpeg", "--audio", "--width", "352", "--height", "288"});
    }

    std::string device() const { return decoder.root() + "/samples"; }

    // The samples of the left channel that were played so far.
    std::vector<std::int16_t> heard() const {
        const std::string bytes = appliance::readFile(device());
        std::vector<std::int16_t> left(bytes.size() / 4);
        for (std::size_t i = 0; i < left.size(); ++i) {
            std::memcpy(&left[i], &bytes[4 * i], sizeof left[i]);
        }
        return left;
    }
    // The loudest of the newest 0.7 seconds: the encoder's tone pauses for half a second.
    int loudness() const {
        const std::vector<std::int16_t> samples = heard();
        int highest = 0;
        for (std::size_t i = samples.size() - std::min<std::size_t>(samples.size(), 33'600);
             i < samples.size(); ++i) {
            highest = std::max(highest, std::abs(int{samples[i]}));
        }
        return highest;
    }
    bool isLoud() const {
        return eventually([&] { return loudness() > 1000; });
    }
    bool isSilent() const {
        return eventually([&] { return loudness() == 0; });
    }
    // The largest change from one sample to the next, and where it is.
    struct Step {
        int size = 0;
        std::size_t at = 0;
    };
    Step largestStep() const {
        Step step;
        int last = 0;
        const std::vector<std::int16_t> samples = heard();
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i] - last) > step.size)
                step = {std::abs(samples[i] - last), i};
            last = samples[i];
        }
        return step;
    }

    Appliance decoder;
};

TEST_F(Sound, MovesWithThePictureWithoutAJump) {
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(isLoud()) << decoder.log();
    for (const int source : {1, 0, 1}) {
        ASSERT_EQ(decoder.ctl({"select", std::to_string(source)}).status, 0);
        ASSERT_TRUE(decoder.showsMoving(source));
        const std::size_t before = heard().size();
        EXPECT_TRUE(eventually([&] { return heard().size() > before + 24'000; }));
        EXPECT_TRUE(isLoud());
    }
    const Step step = largestStep();
    std::printf("largest change from one sample to the next: %d, sample %zu of %zu\n", step.size, step.at,
                heard().size());
    EXPECT_LT(step.size, 1500) << "the tone itself changes by 443";
}

TEST_F(Sound, FollowsTheControlCommand) {
    decoder.start();
    ASSERT_TRUE(isLoud()) << decoder.log();
    const std::size_t before = heard().size();
    ASSERT_TRUE(eventually([&] { return heard().size() > before + 48'000; }));
    const int loud = loudness();
    EXPECT_THAT(decoder.ctl({"mute"}).output, HasSubstr("muted"));
    EXPECT_TRUE(isSilent());
    EXPECT_EQ(decoder.ctl({"get", "Sound.Info.Muted"}).output, "yes\n");
    EXPECT_THAT(decoder.ctl({"volume", "50"}).output, HasSubstr("50%; the sound is muted"));
    EXPECT_THAT(decoder.ctl({"unmute"}).output, HasSubstr("50%"));
    EXPECT_TRUE(eventually([&] { return loudness() > loud / 10 && loudness() < loud / 6; }))
        << loudness() << " of " << loud;
    EXPECT_EQ(decoder.ctl({"volume", "101"}).status, 2);
    EXPECT_EQ(decoder.ctl({"set", "Sound.Enabled", "no"}).status, 0);
    EXPECT_TRUE(eventually([&] {
        const std::size_t now = heard().size();
        appliance::pause(std::chrono::milliseconds(200));
        return heard().size() == now;
    })) << "the device is closed";
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.ctl({"set", "Sound.Enabled", "yes"}).status, 0);
    EXPECT_EQ(decoder.ctl({"volume", "100"}).status, 0);
    EXPECT_TRUE(isLoud());
}

TEST_F(Sound, MissingDeviceDoesNotDisturbThePicture) {
    decoder.set("Sound.Device", "no-such-device");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.waitForLog("There is no sound device"));
    const int player = decoder.playerPid();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.playerPid(), player);
    EXPECT_EQ(decoder.countInLog("There is no sound device"), 1U);
}

} // namespace
