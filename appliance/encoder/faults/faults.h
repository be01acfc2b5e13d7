// The faults that the encoder can simulate, so that a decoder's reactions can be tested. Faults are given on the
// command line or switched while the encoder runs.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

enum class Fault {
    Refuse,
    Unauthorised,
    NotFound,
    ViewUnauthorised,
    ViewNotFound,
    ViewHash,
    Stall,
    Freeze,
    Close,
    Garbage,
    Slow,
    Silent,
    Huge,
    EndlessHeaders,
    Delay,
    WrongCSeq,
    NoSession,
    Truncated,
    EarlyData,
    CloseAfter,
    NoRtp,
    NoRtcp,
    SoapGarbage,
    SoapBomb,
    SilentSearch,
    ProbeGarbage,
    ForeignAddress,
    Clock,
};
constexpr std::size_t faultCount = static_cast<std::size_t>(Fault::Clock) + 1;

// A set of active faults. Some take a number: Stall, Freeze and Close a count of frames, Slow milliseconds per byte,
// Delay milliseconds per reply, Truncated bytes, CloseAfter replies, Clock seconds.
class FaultSet {
public:
    bool has(Fault fault) const { return numbers_[index(fault)].has_value(); }
    // The fault's number; 0 if the fault is off or takes no number.
    int number(Fault fault) const { return numbers_[index(fault)].value_or(0); }

    // Adds a list of faults: "NAME" or "NAME=NUMBER" (0 to 1000000), separated by blanks, commas or line ends.
    // Returns an error text, or "". After an error the set is unchanged.
    std::string add(std::string_view list);

    // The active faults in the form that add() reads.
    std::string text() const;

    bool operator==(const FaultSet&) const = default;

private:
    static std::size_t index(Fault fault) { return static_cast<std::size_t>(fault); }
    std::string addOne(std::string_view word);

    std::array<std::optional<int>, faultCount> numbers_;
};

// One line per fault with its name and effect, for --help.
std::string faultsHelp();

// The encoder's active faults. Any thread may read and switch them.
class FaultSwitch {
public:
    explicit FaultSwitch(FaultSet initial) : current_(initial) {}

    FaultSet current() const;
    void set(FaultSet faults);

    // The listener is called after every change, on the thread that made it. Set it before there are other threads.
    void onChange(std::function<void(const FaultSet&)> listener) { listener_ = std::move(listener); }

private:
    mutable std::mutex mutex_;
    FaultSet current_;
    std::function<void(const FaultSet&)> listener_;
};
