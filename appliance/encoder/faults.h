// The ways in which a video encoder misbehaves on request, so that a decoder's reactions can be tried with a
// real device instead of a pretended one. Faults are named on the command line or switched while the encoder
// runs.
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
};
constexpr std::size_t faultCount = static_cast<std::size_t>(Fault::NoRtcp) + 1;

// Some faults take a number: frames for Stall, Freeze and Close, milliseconds a byte for Slow, milliseconds a
// reply for Delay, bytes for Truncated, replies for CloseAfter.
class FaultSet {
public:
    bool has(Fault fault) const { return numbers_[index(fault)].has_value(); }
    // The fault's number; 0 when the fault is off or takes none.
    int number(Fault fault) const { return numbers_[index(fault)].value_or(0); }

    // Adds the faults of a list: "NAME" or "NAME=NUMBER" (0 to 1000000), separated by blanks, commas or line
    // ends. Gives an error text, or an empty one; after an error the set is as it was.
    std::string add(std::string_view list);

    // The faults that are on as add() reads them, separated by blanks.
    std::string text() const;

    bool operator==(const FaultSet&) const = default;

private:
    static std::size_t index(Fault fault) { return static_cast<std::size_t>(fault); }
    std::string addOne(std::string_view word);

    std::array<std::optional<int>, faultCount> numbers_;
};

// One line a fault, for --help and the manual: name and what it does.
std::string faultsHelp();

// The faults in force. Any thread may read and switch them.
class FaultSwitch {
public:
    explicit FaultSwitch(FaultSet initial) : current_(initial) {}

    FaultSet current() const;
    void set(FaultSet faults);

    // Called after every change, on the thread that made it. Set once, before other threads exist.
    void onChange(std::function<void(const FaultSet&)> listener) { listener_ = std::move(listener); }

private:
    mutable std::mutex mutex_;
    FaultSet current_;
    std::function<void(const FaultSet&)> listener_;
};
