// The parameters that this decoder knows: the values that each takes, and when it is read.
//
// A parameter file can hold any name. This table has the names that a program of the appliance reads. `set` and
// `check` use it to find a mistyped name or value, because the supervisor silently treats an unknown value as "no"
// or 0. It also says when a new value takes effect. docs/parameters.md has the same table; a test compares the two.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class ValueKind {
    YesNo,
    Number,         // decimal, from `least` to `most`
    Choice,         // one of the words in `words`, separated by '|'
    ChoiceOrNumber, // one of the words, or a number from `least` to `most`
    ChoiceOrSize,   // one of the words, or the size of a screen, WIDTHxHEIGHT
    Address,        // host or host:port
    Broker,         // mqtt://host or mqtts://host:port
    OwnTopic,       // SITE/NAME, of MQTT
    Default,        // "default" or a value that the encoder understands
    Text,
};

// When a program reads a parameter. The order is that of the effect: a new value is in force when the last of its
// readings has happened.
enum Reading : unsigned {
    AtUse = 1,        // whenever it is needed
    AtPlayer = 2,     // when a source is shown: at the start of its player or the move of its camera
    AtDisconnect = 4, // when the decoder disconnects
    AtDetection = 8,  // when the encoder is asked what it has
    AtConnect = 16,   // when the decoder connects
    AtStart = 32,     // when the supervisor starts
    AtPanel = 64,     // when the panel starts
};

struct KnownParameter {
    std::string_view name; // "Decoder.SequenceMode"; of a source: the key alone, "Address"
    ValueKind kind;
    unsigned readings; // of Reading
    long least = 0;
    long most = 0;
    std::string_view words = {};
};

// Parameters of the decoder itself (file 0).
std::span<const KnownParameter> decoderParameters();

// Keys of a source's section [Encoder.NAME] (file 0).
std::span<const KnownParameter> sourceParameters();

// Keys of a rule's section [Rule.NAME] (file 0).
std::span<const KnownParameter> ruleParameters();

// Values that programs of the decoder publish (file 1).
std::span<const KnownParameter> infoParameters();

// The section prefix of a source, "Encoder.".
inline constexpr std::string_view sourceGroup = "Encoder.";

// The section prefix of a rule, "Rule.".
inline constexpr std::string_view ruleGroup = "Rule.";

// Compares two names of parameters, which ignore case.
bool sameName(std::string_view a, std::string_view b);

// 1 for the names that programs of the decoder write ("Decoder.Info.*", "Sound.Info.*"), else 0.
int parameterFile(std::string_view name);

// The parameter of that full name ("Encoder.Front door.Address" included), or null. Names ignore case.
const KnownParameter* findParameter(std::string_view name);

// The known name that is nearest to a mistyped full name; "" when none is near.
std::string nearestParameter(std::string_view name);

// The words that the parameter takes; empty unless it takes only certain words.
std::vector<std::string> valueWords(const KnownParameter& parameter);

// What the parameter takes: "yes or no", "a number from 0 to 600", "host or host:port".
std::string takenText(const KnownParameter& parameter);

// When it is read, in the words of docs/parameters.md: "connect, detection".
std::string readingsText(const KnownParameter& parameter);

// When a new value takes effect: "now", "at the next connect".
std::string effectText(const KnownParameter& parameter);
