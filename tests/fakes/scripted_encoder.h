// Detection cases as data: an encoder that plays its part from a file, and what a detection must make of it.
//
// A case file has three sections; "#" begins a comment line, "include FILE" brings in the lines of another
// file.
//
//   [source]        address, user, password, number, type, timeout, ports (found|none); see Reader for
//   defaults [exchange]      what is asked, in order, each with what comes back:
//     HTTP HOST PORT PATH                a request without credentials (the API version)
//     GET PATH                           a request with the source's address and credentials
//     TCP HOST PORT                      an RTSP connection
//     RTSP                               a request on it, byte for byte in the "|" lines that follow
//     BODY LENGTH                        a body is skipped; no reply
//     AWAIT                              the answer to TEARDOWN is waited for; no reply
//     JOIN GROUP PORT, LEAVE PORT        a multicast group is joined and left (no reply)
//     UDP HOST PORT                      a socket for the encoder's packets
//     WAIT                               for RTP and RTCP
//     -> REPLY                           of HTTP and GET: "TEXT" or a result, then mode=N port=N host=H
//     took=MS
//                                        times=N (the text repeated); of TCP, JOIN, UDP: ok or failed; of
//                                        RTSP: unsent, unread or a status code, then header lines; of WAIT:
//                                        packets, nothing or interrupted
//   [expect]        returns = true|false; status KEY=VALUE in order; entry.MEMBER = VALUE (members not named
//   have
//                   their first value); log LEVEL TEXT; stdout "TEXT" and trace | LINE where they matter
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

// Throws std::runtime_error with file and line for what it does not understand.
Case readCase(const std::filesystem::path& file);

// The text between double quotes, with \n, \r, \0, \\ and \" in it.
std::string unquoted(const std::string& text);

std::vector<std::filesystem::path> allCases(const std::filesystem::path& folder);

// How the encoder's part is disturbed.
enum class Disturbance {
    None,
    NetworkInterrupted, // libcommon's wait is interrupted: the exchange fails, and so does every later one
    SignalPending,      // SIGUSR1 is sent while the exchange goes on as it should
};

// What one run showed.
struct CaseRun {
    bool returned = false;
    SourceEntry entry;
    std::vector<std::string> calls; // fake::calls
    std::string output;
    std::size_t exchanges = 0;  // that were asked for, before a disturbance and at it
    std::size_t afterwards = 0; // network requests begun after a disturbance
    int descriptorsLeaked = 0;
    bool inputClosed = false; // descriptor 0, a sacrifice of the test
    int sequenceBegan = -1;   // sequence number of the first RTSP request; -1 without one
};

inline constexpr int statusId = 7;

// Runs the detection against the case's encoder. Requests that differ from the case are test failures, except
// after a disturbance, which comes at the exchange `where`.
CaseRun runCase(const Case& one, Disturbance disturbance = Disturbance::None, std::size_t where = 0);

} // namespace detect_test
