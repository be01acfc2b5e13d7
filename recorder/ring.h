// Writes lines into the recorder's file (ring_format.h), which is mapped into memory.
//
// A line costs no system call. When the process is killed or crashes, everything that was written is in the file. The
// file keeps its lines when it is opened again; new ones follow. Mode 0640, group of its folder.
#pragma once

#include "recorder/ring_format.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace recorder {

class Ring {
public:
    // Opens or makes the file. A file of another size or layout, and a damaged one, is made anew. Null with errno: EPERM
    // for something that is no file of this user.
    static std::unique_ptr<Ring> open(const std::string& path, std::size_t bytes);
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // Appends a line. One that needs more than an eighth of the file is cut. Any thread, several at once.
    void append(std::string_view line);

    // How many cells were ever written, and how many the file has. Any thread.
    std::uint64_t written() const { return next_; }
    std::uint64_t size() const { return cells_; }

private:
    Ring(void* memory, std::size_t cells);

    void* memory_;
    Cell* first_;
    std::size_t cells_;
    std::atomic<std::uint64_t> next_{0}; // the place of the next cell, counted from 0
};

} // namespace recorder
