// Detection cases as data: a file describes what an encoder answers and what a detection must find.
//
// A case file has three sections. "#" begins a comment line; "include FILE" inserts the lines of another file.
//
// [source]     address, user, password, number, type, timeout, ports (found or none); class Reader has the defaults
//
// [exchange]   what is asked, in order, each with its reply:
//   HTTP HOST PORT PATH         a request without credentials (the API version)
//   GET PATH                    a request with the source's address and credentials
//   TCP HOST PORT               an RTSP connection
//   RTSP                        a request on it, byte for byte in the following "|" lines
//   BODY LENGTH                 a body is skipped; no reply
//   AWAIT                       the answer to TEARDOWN is awaited; no reply
//   JOIN GROUP PORT, LEAVE PORT a multicast group is joined and left; LEAVE has no reply
//   UDP HOST PORT               a socket for the encoder's packets
//   WAIT                        for RTP and RTCP
//   -> REPLY                    the reply to the line above:
//     HTTP, GET                 "TEXT" or a result, then mode=N port=N host=H took=MS times=N (the text repeated)
//     TCP, JOIN, UDP            ok or failed
//     RTSP                      unsent, unread, or a status code, then header lines
//     WAIT                      packets, nothing or interrupted
//
// [expect]     returns = true|false; status KEY=VALUE in order; entry.MEMBER = VALUE (a member that is not named keeps
//              its initial value); log LEVEL TEXT; where they matter, stdout "TEXT" and trace | LINE
#pragma once

#include "sources/source_entry.h"
#include "tests/fakes/fake_libcommon.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace detect_test {

struct Exchange {
    std::string request;            // in one line; of RTSP: the whole text after "RTSP "
    std::vector<std::string> reply; // without "-> "
};

struct Case {
    std::string name;
    SourceEntry entry;
    int timeout = 5;
    bool portsFound = true;
    std::vector<Exchange> exchanges;

    bool returns = true;
    std::vector<std::string> status; // "KEY=VALUE"
    SourceEntry expected;
    std::vector<fake::LogLine> log;
    std::optional<std::string> output;
    std::vector<std::string> trace; // empty: not compared
};

// Throws std::runtime_error with file and line for a line that it does not understand.
Case readCase(const std::filesystem::path& file);

// The text between double quotes, with \n, \r, \0, \\ and \" in it.
std::string unquoted(const std::string& text);

std::vector<std::filesystem::path> allCases(const std::filesystem::path& folder);

// How the encoder's part is disturbed.
enum class Disturbance {
    None,
    NetworkInterrupted, // libcommon's wait is interrupted: this exchange and all later ones fail
    SignalPending,      // SIGUSR1 is sent during the exchange, which succeeds
};

// The result of one run.
struct CaseRun {
    bool returned = false;
    SourceEntry entry;
    std::vector<std::string> calls; // fake::calls
    std::string output;
    std::size_t exchanges = 0;  // up to and including the disturbed one
    std::size_t afterwards = 0; // network requests that began after the disturbance
    int descriptorsLeaked = 0;
    bool inputClosed = false; // descriptor 0, which the test opens for this purpose
    int sequenceBegan = -1;   // sequence number of the first RTSP request; -1: there was none
};

inline constexpr int statusId = 7;

// Runs the detection against the case's encoder, with the disturbance at exchange number `where`. A request that
// differs from the case is a test failure, except after the disturbance.
CaseRun runCase(const Case& one, Disturbance disturbance = Disturbance::None, std::size_t where = 0);

} // namespace detect_test
