// A program that lacks something: how it is started and used, and what must be so afterwards.
#pragma once

#include "tests/faults/small_decoder.h"
#include "tests/faults/tracing/tracer.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace faults {

// Made in a process with queues and a network of its own. One thread.
class Subject {
public:
    virtual ~Subject() = default;

    virtual std::string root() const = 0;
    virtual std::vector<std::string> command() const = 0;
    virtual std::map<std::string, std::string> environment() const = 0;
    virtual std::string output() const = 0;
    virtual std::string log() const = 0;

    // Uses the running program: everything that it can do. Empty, or what it did not do in time. `program` is asked
    // whether the program still runs.
    virtual std::string use(Traced& program) = 0;
    // Ends it; empty, or what was wrong with the end and what it left behind.
    virtual std::string end(Traced& program) = 0;
    // Whether it may have ended by itself with this wait status.
    virtual bool mayEndItself(int status) const = 0;
    // Empty, or why the next start, now that nothing lacks, does not work.
    virtual std::string nextStartFails() = 0;
};

// "supervisor"; nothing for an unknown name.
std::unique_ptr<Subject> makeSubject(const std::string& name);
std::vector<std::string> subjectNames();

} // namespace faults
