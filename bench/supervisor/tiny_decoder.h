// A real supervisor whose players show nothing, so that only the supervisor is measured.
#pragma once

#include "tests/appliance/appliance.h"

#include <cstdint>
#include <optional>
#include <string>

namespace bench {

// A program's first instruction, as first_instruction notes it.
struct Start {
    std::int64_t time = 0; // nanoseconds on the clock that never jumps
    int pid = -1;
};

std::int64_t clockNs();

// The starts in a file, in order. One thread.
class Starts {
public:
    explicit Starts(std::string file) : file_(std::move(file)) {}

    const std::string& file() const { return file_; }
    // The next start that was not returned yet; nothing when none comes in time.
    std::optional<Start> next(double seconds = 10);

private:
    std::string file_;
    std::size_t position_ = 0;
};

// Programs of the benchmarks.
std::string benchProgram(const std::string& name); // "tiny_player"

class TinyDecoder {
public:
    // With two sources whose encoders really exist, in manual mode. `shared` lends its encoders.
    explicit TinyDecoder(TinyDecoder* shared = nullptr);

    // Starts the supervisor. With `detected` both sources have been detected and source 0 plays when it returns; false: the
    // first player did not start.
    bool start(const std::vector<std::string>& arguments, bool detected = true);

    appliance::Appliance& appliance() { return appliance_; }
    int supervisor() { return appliance_.supervisor().pid(); }
    Starts& starts() { return starts_; }
    std::optional<Start> current() const { return current_; } // the player that plays

    // Sends the select of the other source. When the event was sent, on clockNs()'s clock.
    std::int64_t selectOther();
    // The player that a select started; nothing when none starts or the old one does not go in time.
    std::optional<Start> awaitSwitch();
    // The next player without a switch, as after a death.
    std::optional<Start> awaitPlayer(double seconds = 10);

private:
    appliance::Appliance appliance_;
    Starts starts_;
    std::optional<Start> current_;
    std::string addresses_[2];
    int source_ = 0;
    int queue_ = -1;
};

} // namespace bench
