// The decoder that a walk acts on: the real supervisor in a temporary appliance, scripted players and encoders.
#pragma once

#include "tests/appliance/appliance.h"
#include "tests/walk/encoders.h"

#include <atomic>

namespace walk {

struct Start {
    unsigned seed = 1;
    std::string mode = "auto";
    bool connects = true;
    int seconds = 20;
};

class Decoder {
public:
    explicit Decoder(const Start& start);

    // Actions; each is recorded.
    void send(int id, int value1, int value2, const std::string& text = "");
    void press(char state); // '1' or '2', through the button file
    void write(const Settings& settings);
    void setConnected(const std::string& value);
    void plan(const std::string& words); // for the next player
    void kill(int pid, int signal);
    void order(int pid, int status); // exit with this status

    const Settings& settings() const { return history_.settings.back(); }
    ScriptedEncoder& encoder(std::size_t number) { return *encoders_[number]; }
    std::size_t encoders() const { return encoders_.size(); }

    // The last state in the log.
    const std::string& state();
    std::size_t transitions() const { return transitions_; }
    std::size_t timesIn(const std::string& state) const; // how often it was entered
    bool await(const std::vector<std::string>& states, appliance::Seconds limit);
    int newestPlayer(); // -1: none runs

    // Looks at texts, LED, parameters and children, if the supervisor's main thread sleeps in a waiting state.
    void look();

    // Sends SIGINT and waits for the end; the exit status.
    int end();
    History history(); // after end()
    const std::vector<Line>& actions() const { return actions_; }
    std::string root() const { return appliance_.root(); }

private:
    Line& record(Kind kind);
    std::string parameterText(const Settings& settings, const std::string& connected) const;
    bool sleeps(std::string& switches);
    void readLog();
    bool isPlayer(int pid) const;
    std::vector<int> children();

    appliance::Appliance appliance_;
    std::vector<std::unique_ptr<ScriptedEncoder>> encoders_;
    History history_;
    std::vector<Line> actions_;
    std::string log_; // what was read of it so far
    std::string state_;
    std::size_t transitions_ = 0;
    std::map<std::string, std::size_t> entered_;
};

} // namespace walk
