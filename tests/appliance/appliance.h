// A whole decoder in a temporary folder, with real programs: encoders, the supervisor, its players.
//
// A test makes an Appliance, adds encoders and sources, starts it, talks to it through `decoderctl`, and
// reads the screen itself. When it is destroyed everything is ended by pid, and what a supervisor must not
// leave behind (processes, queues, barrier files) is looked for and reported as a failure. A failed test
// prints the end of the log. One thread.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame_store.h"
#include "tests/appliance/encoder.h"
#include "tests/appliance/process.h"

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace appliance {

using Keys = std::map<std::string, std::string>;

class Appliance {
public:
    // An appliance with short times, in automatic mode, without sources.
    Appliance();
    ~Appliance();
    Appliance(const Appliance&) = delete;
    Appliance& operator=(const Appliance&) = delete;

    const std::string& root() const { return root_; }

    // ---- Before start().

    // Starts an encoder with these further arguments and adds it as a source; its mark on the screen is the
    // source's index. `keys` replace or add to the source's keys.
    Encoder& addEncoder(const std::string& name, const std::vector<std::string>& arguments = {},
                        const Keys& keys = {});
    // The same on a host of its own with the usual ports, where RTSP is looked for beside HTTP. Only in an
    // isolated process.
    Encoder& addHost(const std::string& name, const std::vector<std::string>& arguments = {},
                     const Keys& keys = {});
    void addSource(const std::string& name, const Keys& keys);
    void set(const std::string& name, const std::string& value); // "Decoder.SequenceMode"
    void setManual() { set("Decoder.SequenceMode", "manual"); }

    // What the parameter file is to hold, byte for byte, instead of what set() and the sources say; nothing:
    // there is to be none.
    void setParameterFile(const std::optional<std::string>& text) { parameterFile_ = text; }
    void keepParameterFile() { written_ = true; } // the test wrote it itself
    std::string parameterText() const;            // what would be written
    std::string parameterFile() const { return root_ + "/etc/decoder/decoder.conf"; }

    // Replaces a program of the appliance by a shell script, in which $REAL is the program itself.
    void wrapProgram(const std::string& name, const std::string& script);

    // What the programs get in their environment besides the appliance's own.
    void setVariable(const std::string& name, const std::string& value) { variables_[name] = value; }
    // The supervisor is started by this command, whose further arguments are the supervisor and its own.
    void setStarter(const std::vector<std::string>& command) { starter_ = command; }

    // From now on players wait right after their start until releasePlayers().
    void holdPlayers();
    void releasePlayers();

    // ---- Running.

    // Writes the parameter file, the first time, and starts the supervisor.
    void start(const std::vector<std::string>& arguments = {"-v"});
    Encoder& encoder(std::size_t number) { return *encoders_.at(number); }
    Process& supervisor() { return *supervisor_; }

    // Queues are left on purpose: they are removed, not reported.
    void forgetQueues();

    // Ends the supervisor with a signal; its exit status, or -1 when it was killed or did not end.
    int stop(int signal);

    // decoderctl.
    Finished ctl(const std::vector<std::string>& arguments) const;
    nlohmann::json status() const;
    std::string sourceValue(int index, const std::string& key) const;

    // ---- Looking.

    std::string log() const { return readFile(logFile()); }
    std::string logFile() const { return root_ + "/var/log/decoder.log"; }
    std::size_t countInLog(const std::string& text) const;
    // Seconds from the first line of the log with the one text to the first with the other; negative when
    // either is missing.
    double secondsInLog(const std::string& from, const std::string& to) const;
    // When the lines with that text were written, in seconds since the log's first line.
    std::vector<double> timesInLog(const std::string& text) const;
    bool waitForLog(const std::string& text, std::size_t times = 1, Seconds limit = patience) const;

    // "SINGLE_PLAYER_STARTED": the name of the state that was entered last; needs -v.
    std::string state() const;
    bool waitForState(const std::string& name, Seconds limit = patience) const;

    screen::FrameStore& screen() { return store_; }
    std::optional<FrameMark> mark(); // of the newest frame
    int playerPid();                 // who drew the newest frame; -1 nobody

    // The screen shows pictures of that source, and they move: marks of it with at least three different
    // counters, all drawn after the call began.
    bool showsMoving(int source, Seconds limit = patience);

    bool waitForText(int line, const std::string& part, Seconds limit = patience) const;
    std::string text(int line) const; // on-screen text
    int currentSource() const;        // "Decoder.Info.CurrentSource"
    bool waitForSource(int index, Seconds limit = patience) const;

    // Pids of the players that run now, ascending.
    std::vector<int> players() const;
    std::string playerName(); // the program that drew the newest frame

    // Programs of the build.
    static std::string program(const std::string& name);

private:
    Encoder& add(std::unique_ptr<Encoder> encoder, const std::string& name, const Keys& keys);
    std::string encoderLog() const;
    std::map<std::string, std::string> environment() const;
    void reportLeftovers();

    std::string root_;
    std::vector<std::pair<std::string, Keys>> sections_; // in file order
    std::vector<std::unique_ptr<Encoder>> encoders_;
    std::unique_ptr<Process> supervisor_;
    std::optional<std::optional<std::string>> parameterFile_;
    bool written_ = false;
    std::map<std::string, std::string> variables_;
    std::vector<std::string> starter_;
    screen::FrameStore store_;
    int sources_ = 0;
};

} // namespace appliance
