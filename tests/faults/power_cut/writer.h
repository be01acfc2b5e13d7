// A program that writes files: how it is started, and what the next program must find after a power cut.
#pragma once

#include "tests/faults/tracing/tracer.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace faults {

// Made in a process with queues and a network of its own. One thread.
class Writer {
public:
    virtual ~Writer() = default;

    virtual std::string root() const = 0;
    virtual std::vector<std::string> command() const = 0;
    virtual std::map<std::string, std::string> environment() const = 0;
    virtual std::string output() const = 0;
    // Lets the program do its work and end, or be killed by the power cut.
    virtual void use(Traced& program) = 0;
    // Starts the next program. Empty, or what it finds that is neither old nor new.
    virtual std::string nextFails() = 0;
    // True for a program that makes many calls and starts slowly: then each call gets one kind of loss.
    virtual bool isSlow() const { return false; }
};

std::vector<std::string> writerNames();
std::unique_ptr<Writer> makeWriter(const std::string& name);

std::unique_ptr<Writer> makeSupervisorWriter();

} // namespace faults
