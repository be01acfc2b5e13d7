// The parameters that this decoder knows, and which values it takes for them.
//
// The parameter files hold any name; what is listed here is what some program of the appliance reads. `set`
// uses it to refuse a mistyped name or value before it is written, because the supervisor itself takes a
// value that it doesn't know for "no" or 0 without a word. docs/parameters.md lists the same names; a test
// compares the two.
#pragma once

#include <span>
#include <string>
#include <string_view>

enum class ValueKind {
    YesNo,
    Number, // decimal, from `least` to `most`
    Choice, // one of the words in `words`, separated by '|'
    Text,
};

struct KnownParameter {
    std::string_view name; // "Decoder.SequenceMode"; of a source: the key alone, "Address"
    ValueKind kind;
    long least = 0;
    long most = 0;
    std::string_view words = {};
};

// Parameters of the decoder itself (file 0).
std::span<const KnownParameter> decoderParameters();

// Keys of a source's section [Encoder.NAME] (file 0).
std::span<const KnownParameter> sourceParameters();

// What the supervisor tells about itself (file 1).
std::span<const KnownParameter> infoParameters();

// 1 for the names that the supervisor writes ("Decoder.Info.*"), else 0.
int parameterFile(std::string_view name);

// The parameter of that full name ("Encoder.Front door.Address" included), or null. Names ignore case.
const KnownParameter* findParameter(std::string_view name);

// "" when the parameter takes the value, else what it takes: "yes or no". The empty value, which clears a
// parameter, is always taken.
std::string refusal(const KnownParameter& parameter, std::string_view value);
