// decoderctl under its own appliance root, where the test acts as the decoder.
#pragma once

#include "tests/appliance/isolation.h"
#include "tests/appliance/process.h"

#include <libcommon/libcommon.h>

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

class Control : public testing::Test {
protected:
    static constexpr const char* configuration = "# The house.\n"
                                                 "[Decoder]\n"
                                                 "SequenceMode = manual # not a comment\n"
                                                 "AutoDetectTimeout=5\n"
                                                 "\n"
                                                 "[Encoder.Front door]\n"
                                                 "Address = 127.0.0.1:8081\n"
                                                 "Password = s3cret\n"
                                                 "[Encoder.Front yard]\n"
                                                 "Address = 127.0.0.1:8082\n"
                                                 "[Encoder.x3]\n"
                                                 "Name = Garage\n"
                                                 "Address = 127.0.0.1:8083\n";

    Control() {
        for (const char* folder : {"etc/decoder", "run/decoder", "var/tmp", "proc/sys/dev"}) {
            std::filesystem::create_directories(std::filesystem::path(root) / folder);
        }
        configure(configuration);
    }

    ~Control() override {
        if (running) {
            removeEventQueue();
        }
        std::filesystem::remove_all(root);
    }

    void configure(const std::string& text) const {
        appliance::writeFile(root + "/etc/decoder/decoder.conf", text);
    }

    void becomeTheDecoder() {
        running = initEventQueue() == 0;
        ASSERT_TRUE(running);
    }

    // As the supervisor does when it connects and disconnects.
    static void setConnectedInfo(bool connected) {
        ParamWrapper(1, true)["Decoder.Info.Connected"] = connected ? "yes" : "no";
    }

    appliance::Finished ctl(std::vector<std::string> arguments, const std::string& input = "") const {
        arguments.insert(arguments.begin(), HOUSE_PROGRAMS "/decoderctl");
        std::map<std::string, std::string> environment{{"APPLIANCE_ROOT", root}, {"LIBCOMMON_LOG", "stderr"}};
        if (!input.empty()) {
            appliance::writeFile(root + "/input", input);
            const std::string shell = "exec \"$0\" \"$@\" <\"$APPLIANCE_ROOT/input\"";
            arguments.insert(arguments.begin(), {"/bin/sh", "-c", shell});
        }
        return appliance::runToEnd(arguments, environment);
    }

    nlohmann::json ctlJson(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "--json");
        return nlohmann::json::parse(ctl(std::move(arguments)).output, nullptr, false);
    }

    // The oldest event in the queue. There must be one, because the wait has no time limit.
    static Event nextEvent() {
        Event event{};
        EXPECT_EQ(waitEvent(&event), 0);
        return event;
    }

    std::string file() const { return appliance::readFile(root + "/etc/decoder/decoder.conf"); }

    // The library reads APPLIANCE_ROOT once, so all tests of a process share one root, which each test finds empty.
    // With one root per test the second test would wait for events in a queue of the first.
    static const std::string& sharedRoot() {
        static const struct Root {
            Root() {
                appliance::isolate();
                char base[] = "/tmp/control test-XXXXXX";
                folder = mkdtemp(base);
                setenv("APPLIANCE_ROOT", folder.c_str(), 1);
                setenv("LIBCOMMON_LOG", (folder + "/log").c_str(), 1);
            }
            ~Root() { std::filesystem::remove_all(folder); }
            std::string folder;
        } shared;
        return shared.folder;
    }

    const std::string root = sharedRoot();
    bool running = false;
};
