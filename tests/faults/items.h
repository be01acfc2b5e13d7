// Runs the items of a fault program, several at once, each in a process of its own.
//
// The process of an item may unshare what it wants; with it ends everything that it made. What it reports reaches the
// Progress in the order of the items.
#pragma once

#include "tests/faults/progress.h"

#include <cstdio>
#include <functional>
#include <string>

namespace faults {

// What an item tells the fault program. Texts have one line.
class Report {
public:
    explicit Report(std::FILE* to) : to_(to) {}

    void broken(const std::string& text) { line("broken", text); }
    void note(const std::string& text) { line("note", text); } // printed only
    void add(const std::string& name, double value = 1) { line("add " + name, std::to_string(value)); }
    void max(const std::string& name, double value) { line("max " + name, std::to_string(value)); }

private:
    void line(const std::string& kind, const std::string& text);

    std::FILE* to_;
};

// Items up to `total`. `item` runs in a process of its own; an exception in it is reported as broken. `atOnce` of them run side by side; one
// that takes longer than `limit` seconds is killed and reported.
void runItems(Progress& progress, long total, int atOnce, double limit,
              const std::function<void(long item, Report&)>& item);

} // namespace faults
