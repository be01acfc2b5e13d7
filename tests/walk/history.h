// What happened in a walk, in the order of time: the supervisor's log, what the walk did, what the players and
// encoders recorded, and looks at the appliance while the supervisor slept.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace walk {

using Time = std::int64_t; // microseconds since the epoch, the clock of the log
inline constexpr Time second = 1000000;

Time now();

struct Source {
    std::string name;
    std::string address;
    std::string number = "1";
    std::string type = "mjpeg";
    bool inAuto = true;
    bool inManual = true;
    int displayTime = 1; // seconds
    std::string preset;

    std::string key() const { return address + '#' + number + '#' + type; }
};

// One version of the parameters that the walk writes. "Decoder.Connected" is separate: the supervisor writes it, too.
struct Settings {
    std::string mode = "auto";
    bool autoConnect = true;
    bool alarms = true;
    bool button = true;
    int alarmTime = 1; // seconds
    bool showsMessage = true;
    int detectTimeout = 2; // seconds
    std::vector<Source> sources;

    const Source* source(int index) const;
    std::string key(int index) const; // "" for an index that names no source
};

// What a look at the appliance found while the supervisor's main thread slept.
struct Look {
    std::string osd[3];
    int colour = 0;
    int pattern = 0;
    std::string currentSource;
    std::string infoConnected;
    std::vector<int> children;
};

enum class Kind {
    state,         // the log: a state transition; texts in from and to
    added,         // the log: an event entered the internal queue
    discarded,     // the log: an event found the queue full for its identifier
    pushed,        // the log: the state machine put an event back
    pushDropped,   // the log: the same, but the queue was full
    text,          // any other line of the supervisor's log
    writeBegins,   // the walk begins to write settings; number is their version
    writeEnds,     //
    connectBegins, // the walk begins to write "Decoder.Connected"; text is the value
    connectEnds,   //
    sent,          // the walk sent an event
    pressed,       // the walk wrote to the button file; number is 1 or 2
    killed,        // the walk signalled a player; number is the signal
    player,        // a player recorded text and number
    video,         // an encoder delivered video; text is its address
    moved,         // an encoder got a preset request; text is address and preset
    blanked,       // "blankscreen" ran
    looked,        // a look; number is its index
};

struct Line {
    Time time = 0;
    Kind kind = Kind::text;
    std::string text;
    std::string from;
    std::string to;
    int id = 0;
    int value1 = 0;
    int value2 = 0;
    int pid = 0;
    int number = 0;
    int level = 7;
};

struct History {
    std::vector<Line> lines; // in the order of time; the lines of one log in its order
    std::vector<Settings> settings;
    std::vector<Look> looks;
    std::map<int, std::string> alarmTexts;    // value 2 of an alarm to its text
    std::vector<std::pair<long, int>> timers; // milliseconds and id, as the supervisor printed them
    std::vector<int> launched;                // pids of players, in order, as the supervisor printed them
    Time bootTime = 0;                        // gettimeusec() is time - bootTime
    Time ended = 0;                           // when the walk sent SIGINT
};

std::vector<Line> parseLog(const std::string& text, int supervisor);
std::vector<Line> parsePlayers(const std::string& text);
// What the supervisor printed on standard output.
std::vector<std::pair<long, int>> parseTimers(const std::string& output);
std::vector<int> parseLaunches(const std::string& output);

// Inserts the lines of the walk, the players and the encoders between the lines of the log.
std::vector<Line> merge(std::vector<Line> log, std::vector<Line> others);

std::string describe(const Line& line);

} // namespace walk
