// How far a fault program came, and what it counted: its options, and a state file with which it goes on later.
//
// A fault program repeats items: rounds, instants, switches. It begins with next(), calls done() after each one and
// returns end(). The state file is text, replaced as a whole after each item:
//   next 12                 the item to go on with
//   total 1000              all of them; 0: it has no end
//   broken 0                what was found wrong
//   figure kills 311        NAME VALUE, counted since item 0; names that end in -max or -min are maxima or minima
// tests/faults/run reads it. One thread.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace faults {

struct Options {
    unsigned seed = 1;
    std::optional<double> seconds; // begin no item later than this
    std::optional<long> count;     // at most so many items in this run
    std::string stateFile;         // "": none
};

// Options of the command line: --seed N, --seconds N, --count N, --state FILE, --help. std::nullopt: the program ends
// now, with `status`: 0 after --help, 2 after a wrong option, which is printed.
std::optional<Options> readOptions(int argc, char** argv, const std::string& description, int& status);

class Progress {
public:
    // Reads the state file if there is one. Throws std::runtime_error if it can't be understood: figures of other items
    // would be lost without a word.
    Progress(Options options, long total);

    const Options& options() const { return options_; }
    long next() const { return next_; }
    bool more() const;          // whether another item may begin
    double secondsLeft() const; // a large number without --seconds
    void done();                // the item is over: writes the state

    void add(const std::string& name, double value = 1);
    void set(const std::string& name, double value);
    void max(const std::string& name, double value); // the name ends in "-max"
    void min(const std::string& name, double value); // the name ends in "-min"
    double figure(const std::string& name) const;

    // Prints "broken: item N: TEXT" and counts it. At most a hundred are printed.
    void broken(const std::string& text);

    // Prints all figures. Returns the exit status: 1 if anything broke in this run.
    int end() const;

private:
    void read();
    void write() const;

    Options options_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    long total_;
    long next_ = 0;
    long doneNow_ = 0;
    long broken_ = 0;
    long brokenNow_ = 0;
    std::map<std::string, double> figures_;
};

} // namespace faults
