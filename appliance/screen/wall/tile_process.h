// The process of one tile: started, connected, and started again when it has ended.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace screen {

// For one thread at a time.
class TileProcess {
public:
    // `program` is decoder-tile; `root` is the appliance root of the tile. Nothing is started yet.
    TileProcess(std::string program, std::string root);
    TileProcess(const TileProcess&) = delete;
    TileProcess& operator=(const TileProcess&) = delete;
    ~TileProcess(); // ends the process; takes a second at most

    // Starts the process if it does not run. After an end it waits 1 second, after each further one twice as long, at
    // most 30 seconds; a run of a minute starts that anew. `now` is on gettimeusec()'s clock. True when it was started
    // just now. A failure is logged.
    bool keepRunning(std::int64_t now);

    // The connection to the process; -1 while there is none.
    int socket() const { return socket_; }

    // Kills the process, which has closed the connection, sent something broken or does not read.
    void giveUp(std::int64_t now);

    pid_t pid() const { return pid_; } // -1: none

private:
    bool start();
    void end(int patienceMs); // kills it after that time

    std::string program_;
    std::string root_;
    pid_t pid_ = -1;
    int socket_ = -1;
    std::int64_t startedAt_ = 0;
    std::int64_t startAgainAt_ = 0;
    std::int64_t pauseUs_ = 0;
};

} // namespace screen
