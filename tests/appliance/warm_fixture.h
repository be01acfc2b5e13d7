// A decoder whose gateway keeps sources warm, with real encoders and players.
//
// Kinds need their own hosts and multicast, so the tests run in a private network namespace.
#pragma once

#include "appliance/streams/kept_status.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/appliance/isolation.h"

#include <libcommon/paths.h>

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace appliance {

using Arguments = std::vector<std::string>;

inline constexpr const char* fromKeeper = "The stream comes from the keeper";
inline constexpr const char* fromEncoder = "The stream comes from the encoder now";

// Key pictures are far apart and nobody gets one out of turn, so that only the keeper has one at once.
inline Arguments warmEncoder(const std::string& kind, const Arguments& more) {
    Arguments all{"--kinds", kind, "--no-key-on-join"};
    for (const auto& [option, value] : {std::pair{"--width", "352"}, {"--height", "288"}, {"--gop", "50"}})
        if (std::ranges::find(more, option) == more.end())
            all.insert(all.end(), {option, value});
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class Warm : public testing::Test {
protected:
    void SetUp() override {
        if (!isolate()) {
            GTEST_SKIP() << "needs a network namespace of its own for hosts and multicast";
        }
        decoder.emplace();
        // For askKeeper() in this process; the encoders have no root.
        setenv("APPLIANCE_ROOT", decoder->root().c_str(), 1);
        ASSERT_EQ(libcommon::applianceRoot(), decoder->root());
        unsetenv("APPLIANCE_ROOT");
        decoder->setManual();
        decoder->set("Warm.Sources", "all");
    }

    void add(const std::string& kind, const Arguments& more = {}, const Keys& keys = {}) {
        const std::string group = "239.255.0." + std::to_string(++encoders);
        Arguments all = warmEncoder(kind, more);
        all.insert(all.end(), {"--multicast", group});
        decoder->addHost(kind + " " + std::to_string(encoders), all, keys);
    }

    void start() {
        gateway.emplace(*decoder);
        decoder->start({"-v", "-v"});
    }

    // Shows each source once, so that it is detected.
    void detectAll() {
        for (int source = 0; source < encoders; ++source) {
            if (source > 0)
                decoder->ctl({"select", std::to_string(source)});
            ASSERT_TRUE(decoder->showsMoving(source)) << decoder->log();
        }
    }

    static std::optional<streams::KeptReport> report(int source) {
        for (const streams::KeptReport& one :
             streams::askKeeper(2000).value_or(std::vector<streams::KeptReport>()))
            if (std::ranges::find(one.sources, source) != one.sources.end())
                return one;
        return std::nullopt;
    }
    static bool keeps(int source) {
        return eventually([&] {
            const auto one = report(source);
            return one && one->kept;
        });
    }

    // The number of the players' log lines with that text.
    std::size_t lines(const char* text) const { return decoder->countInLog(text); }

    int encoders = 0;
    std::optional<Appliance> decoder;
    std::optional<CameraGateway> gateway;
};

} // namespace appliance
