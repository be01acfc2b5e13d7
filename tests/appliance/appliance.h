// A whole decoder in a temporary folder, with real programs: encoders, the supervisor, its players.
//
// A test makes an Appliance, adds encoders and sources, starts it, talks to it through `decoderctl`, and
// reads the screen itself. The destructor ends all processes by pid. It reports as a failure what a supervisor
// must not leave behind: processes, queues, barrier files. A failed test prints the end of the log. One thread.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame_store.h"
#include "tests/appliance/encoder.h"
#include "tests/appliance/process.h"

#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
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

    // Starts an encoder with these additional arguments and adds it as a source. Its mark on the screen is the
    // source's index. `keys` replaces the source's keys or adds to them.
    Encoder& addEncoder(const std::string& name, const std::vector<std::string>& arguments = {},
                        const Keys& keys = {});
    // The same on its own host with the usual ports, so that a detection finds RTSP beside HTTP. Only in an
    // isolated process.
    Encoder& addHost(const std::string& name, const std::vector<std::string>& arguments = {},
                     const Keys& keys = {});
    void addSource(const std::string& name, const Keys& keys);
    void set(const std::string& name, const std::string& value); // "Decoder.SequenceMode"
    void setManual() { set("Decoder.SequenceMode", "manual"); }

    // The parameter file's bytes, instead of the text from set() and the sources; std::nullopt: there is no file.
    void setParameterFile(const std::optional<std::string>& text) { parameterFile_ = text; }
    void keepParameterFile() { written_ = true; } // the test has written the file itself
    std::string parameterText() const;            // what start() would write
    std::string parameterFile() const { return root_ + "/etc/decoder/decoder.conf"; }

    // Replaces a program of the appliance by a shell script. $REAL in the script is the program itself.
    void wrapProgram(const std::string& name, const std::string& script);

    // Adds a variable to the environment of the programs.
    void setVariable(const std::string& name, const std::string& value) { variables_[name] = value; }
    // This command starts the supervisor. It gets the supervisor's path and arguments as further arguments.
    void setStarter(const std::vector<std::string>& command) { starter_ = command; }

    // From now on, players wait right after their start, until releasePlayers().
    void holdPlayers();
    void releasePlayers();

    // ---- Running.

    // Starts the supervisor. The first time it also writes the parameter file.
    void start(const std::vector<std::string>& arguments = {"-v"});
    Encoder& encoder(std::size_t number) { return *encoders_.at(number); }
    Process& supervisor() { return *supervisor_; }

    // Removes queues that the test left on purpose, so that they are not reported.
    void forgetQueues();

    // Ends the supervisor with a signal. Returns its exit status, or -1 when it was killed or did not end.
    int stop(int signal);

    // decoderctl.
    Finished ctl(const std::vector<std::string>& arguments) const;
    nlohmann::json status() const;
    std::string sourceValue(int index, const std::string& key) const;

    // ---- Looking.

    std::string log() const { return readFile(logFile()); }
    std::string logFile() const { return root_ + "/var/log/decoder.log"; }
    std::size_t countInLog(const std::string& text) const;
    // Seconds from the first log line with `from` to the first with `to`; negative when one of them is missing.
    double secondsInLog(const std::string& from, const std::string& to) const;
    // The times of the lines with that text, in seconds since the log's first line.
    std::vector<double> timesInLog(const std::string& text) const;
    bool waitForLog(const std::string& text, std::size_t times = 1, Seconds limit = patience) const;

    // The name of the state that was entered last, such as "SINGLE_PLAYER_STARTED". Needs -v.
    std::string state() const;
    bool waitForState(const std::string& name, Seconds limit = patience) const;

    screen::FrameStore& screen() { return store_; }
    std::optional<FrameMark> mark(); // of the newest frame
    int playerPid();                 // the player that drew the newest frame; -1: there is no frame

    // The screen shows moving pictures of that source: since the call began, at least three frames with its mark
    // and different counters were drawn.
    bool showsMoving(int source, Seconds limit = patience);

    bool waitForText(int line, const std::string& part, Seconds limit = patience) const;
    std::string text(int line) const; // on-screen text
    int currentSource() const;        // "Decoder.Info.CurrentSource"
    bool waitForSource(int index, Seconds limit = patience) const;

    // The pids of the players that run now, ascending.
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
