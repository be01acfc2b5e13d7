#include "tests/appliance/test_network.h"

#include "tests/fakes/network_namespace.h"
#include "tests/support/programs.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace appliance {

namespace {

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

// Names the network namespace of a process; 0 if it has ended.
ino_t namespaceOf(pid_t pid) {
    struct stat info {};
    return stat(("/proc/" + std::to_string(pid) + "/ns/net").c_str(), &info) == 0 ? info.st_ino : 0;
}

std::string pidText(const Process& process) {
    return std::to_string(process.pid());
}

} // namespace

TestNetwork::TestNetwork() : problem_(enterNetworkNamespace()), ip_(findProgram("ip")) {
    if (problem_.empty() &&
        (ip_.empty() || findProgram("unshare").empty() || findProgram("nsenter").empty())) {
        problem_ = "ip, unshare or nsenter is not installed";
    }
    if (problem_.empty()) {
        try {
            ip("link add trial type bridge");
            ip("link del trial");
        } catch (const std::runtime_error& error) {
            problem_ = std::string("no bridges here: ") + error.what();
        }
    }
}

void TestNetwork::ip(const std::string& arguments) {
    std::vector<std::string> command = wordsOf(arguments);
    command.insert(command.begin(), ip_);
    const Finished finished = runToEnd(command, {});
    if (finished.status != 0) {
        throw std::runtime_error("ip " + arguments + ": " + finished.errors);
    }
}

void TestNetwork::addBridge(const std::string& bridge, const std::string& address) {
    ip("link add " + bridge + " type bridge mcast_snooping 0");
    ip("addr add " + address + " dev " + bridge);
    ip("link set " + bridge + " up");
    // Without a port that is up a bridge does not run.
    ip("link add " + bridge + "a type veth peer name " + bridge + "b");
    ip("link set " + bridge + "a master " + bridge + " up");
    ip("link set " + bridge + "b up");
}

void TestNetwork::addDefaultRoute(const std::string& bridge) {
    ip("route del 224.0.0.0/4 dev lo");
    ip("route add default dev " + bridge);
}

std::size_t TestNetwork::addHost(const std::string& bridge, const std::string& address) {
    const std::size_t number = hosts_.size();
    hosts_.push_back(std::make_unique<Process>(
        std::vector<std::string>{findProgram("unshare"), "--net", findProgram("sleep"), "600"},
        std::map<std::string, std::string>{}, ""));
    const Process& host = *hosts_.back();
    const ino_t ours = namespaceOf(getpid());
    if (!eventually([&] { return namespaceOf(host.pid()) != 0 && namespaceOf(host.pid()) != ours; })) {
        throw std::runtime_error("a host got no namespace");
    }
    const std::string end = "end" + std::to_string(number);
    ip("link add " + end + " type veth peer name cable netns " + pidText(host));
    ip("link set " + end + " master " + bridge + " up");
    for (const std::string command : {"link set lo up", "link set cable up"}) {
        std::vector<std::string> words = wordsOf(command);
        words.insert(words.begin(), ip_);
        runToEnd(on(number, words), {});
    }
    const Finished added = runToEnd(on(number, {ip_, "addr", "add", address, "dev", "cable"}), {});
    const Finished routed =
        runToEnd(on(number, {ip_, "route", "add", "default", "dev", "cable"}), {}); // for multicast
    if (added.status != 0 || routed.status != 0) {
        throw std::runtime_error("a host got no address: " + added.errors + routed.errors);
    }
    return number;
}

void TestNetwork::addOwnAddresses(const std::string& network) {
    ip("route add local " + network + " dev lo");
}

std::vector<std::string> TestNetwork::on(std::size_t host, std::vector<std::string> program) const {
    std::vector<std::string> command{findProgram("nsenter"), "-t", pidText(*hosts_[host]), "-n"};
    command.insert(command.end(), program.begin(), program.end());
    return command;
}

} // namespace appliance
