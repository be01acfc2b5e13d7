// Checks the history of a walk against the model.
#pragma once

#include "tests/walk/machine.h"
#include "tests/walk/table.h"

#include <optional>

namespace walk {

struct Verdict {
    std::vector<std::string> violations; // empty: the supervisor did what it should
    Coverage seen;
    std::size_t transitions = 0;
    std::size_t looks = 0;
    std::size_t machines = 1; // the largest number that agreed with the history at one time
};

Verdict check(const History& history);

class Checker {
public:
    explicit Checker(const History& history);
    Verdict verdict();

private:
    void read(std::size_t number);
    void transition(const Line& line, std::size_t number);
    void look(const Line& line);
    void write(const Line& line);
    void childEnded(const Line& line);
    void settleConnected();
    void renewWindow(Time begin);
    void unexpectedError(const Line& line);
    void fail(const std::string& text, std::size_t number);
    bool matches(const Machine& machine, const Look& look, Time time) const;
    void atEnd();
    void checkReaction();
    std::string wrongTotals(const Machine& machine) const;
    void checkCounts();
    bool sameInput(int one, int other) const;
    void checkPlayers();
    void checkShutdown();
    std::string context(std::size_t number) const;

    const History& history_;
    std::vector<Machine> machines_;
    Window window_;
    std::vector<Line> writes_; // of Decoder.Connected, within the window
    bool writing_ = false;     // the walk has begun to write it
    bool mixed_ = false;       // and the machine wrote it in the meantime
    int settled_ = 0;          // version of the settings that is written
    std::set<int> open_;       // versions being written
    std::set<int> alive_;      // players
    std::set<int> gone_;       // players whose end was reported
    std::size_t launches_ = 0;
    std::optional<std::size_t> shutdown_; // its line in the log
    Time lastSignal_ = 0;                 // when the event thread last logged that it sends SIGUSR1
    bool lost_ = false;                   // after a violation of the table nothing more can be checked
    Verdict verdict_;
};

} // namespace walk
