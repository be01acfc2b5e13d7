// A network of several hosts for tests: network namespaces that are connected by bridges. All of it belongs to the test
// and ends with it.
#pragma once

#include "tests/appliance/process.h"

#include <memory>
#include <string>
#include <vector>

namespace appliance {

class TestNetwork {
public:
    // Moves this process into a network namespace of its own; call it before the process has a second thread. Throws
    // nothing: see problem().
    TestNetwork();

    // Why there is no such network; the test then skips with this text. "" if it can be used.
    const std::string& problem() const { return problem_; }

    // A bridge of this process, with its own address: addBridge("lan", "10.77.0.1/24").
    void addBridge(const std::string& bridge, const std::string& address);

    // Sends everything else over this bridge, multicasts of programs that choose no interface included.
    void addDefaultRoute(const std::string& bridge);

    // A host with one address in the network of a bridge. Returns its number.
    std::size_t addHost(const std::string& bridge, const std::string& address);

    // Makes every address of the network an address of this process: addOwnAddresses("10.80.0.0/16").
    void addOwnAddresses(const std::string& network);

    // The command that runs `program` on a host, for Process and runToEnd().
    std::vector<std::string> on(std::size_t host, std::vector<std::string> program) const;

private:
    void ip(const std::string& arguments); // throws if the command fails

    std::string problem_;
    std::string ip_;
    std::vector<std::unique_ptr<Process>> hosts_; // each holds its namespace
};

} // namespace appliance
