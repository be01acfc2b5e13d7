// Choosing, mending, and the faults of processes and of the network.
#include "tests/faults/plan.h"

#include "tests/faults/processes.h"
#include "tests/support/programs.h"

#include <algorithm>
#include <csignal>
#include <sstream>
#include <sys/syscall.h>

namespace faults {

using appliance::Appliance;

namespace {

constexpr std::size_t remembered = 60; // lines of last()

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> all;
    for (std::string word; stream >> word;)
        all.push_back(word);
    return all;
}

// "qdisc add dev lo root netem loss 2%"; false where the kernel can't.
bool trafficControl(const std::string& arguments) {
    const std::string program = findProgram("tc");
    if (program.empty())
        return false;
    std::vector<std::string> command = words(arguments);
    command.insert(command.begin(), program);
    return appliance::runToEnd(command, {}).status == 0;
}

bool kernelDisturbs() {
    return trafficControl("qdisc add dev lo root netem delay 1ms") && trafficControl("qdisc del dev lo root");
}

} // namespace

const std::vector<Plan::Row>& Plan::rows() {
    static const std::vector<Row> all{
        {14, &Plan::endPlayer},     {10, &Plan::stopPlayer},     {6, &Plan::endService},
        {5, &Plan::stopService},    {5, &Plan::killEncoder},     {5, &Plan::stopEncoder},
        {6, &Plan::disturbEncoder}, {2, &Plan::killBroker},      {3, &Plan::breakParameters},
        {4, &Plan::breakStatus},    {3, &Plan::breakPicture},    {4, &Plan::floodEvents},
        {3, &Plan::floodPresses},   {2, &Plan::floodParameters}, {3, &Plan::floodRequests},
        {14, &Plan::select},        {4, &Plan::alarm},           {1, &Plan::lock},
        {3, &Plan::reconnect},      {3, &Plan::flush},           {5, &Plan::disturbNetwork},
        {3, &Plan::cutNetwork},     {2, &Plan::disturbAll},
    };
    return all;
}

Plan::Plan(Site& site, Progress& progress, unsigned seed)
    : site_(site), progress_(progress), random_(seed), encoderDown_(site.encoders()),
      parametersBroken_(site.decoders()) {
    static const bool possible = kernelDisturbs();
    netem_ = possible;
    progress_.set("kernel-disturbs-network", netem_ ? 1 : 0);
}

Plan::~Plan() {
    mendDue(true);
}

int Plan::below(int limit) {
    // Does not use a distribution of the standard library: those differ from one library to the next.
    return static_cast<int>(random_() % static_cast<unsigned>(limit));
}

void Plan::note(const std::string& what, const char* figure) {
    const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
    std::ostringstream line;
    line.precision(3);
    line << std::fixed << seconds << " s: " << what;
    last_.push_back(line.str());
    if (last_.size() > remembered)
        last_.pop_front();
    progress_.add(figure);
}

void Plan::later(int mostMs, std::function<void()> mend) {
    repairs_.push_back({Clock::now() + std::chrono::milliseconds(100 + below(mostMs)), std::move(mend)});
}

void Plan::mendDue(bool all) {
    std::deque<Repair> rest;
    for (Repair& repair : std::exchange(repairs_, {}))
        if (all || repair.due <= Clock::now())
            repair.mend();
        else
            rest.push_back(std::move(repair));
    repairs_ = std::move(rest);
}

void Plan::keepRunning() {
    for (const auto& service : site_.services()) {
        if (!service->running() && service->starts() > 0)
            service->port(); // it is in the output of the one that ended
        service->keepRunning();
    }
}

void Plan::step() {
    mendDue(false);
    keepRunning();
    int all = 0;
    for (const Row& row : rows())
        all += row.weight;
    int chosen = below(all);
    const auto row = std::ranges::find_if(rows(), [&](const Row& one) { return (chosen -= one.weight) < 0; });
    (this->*row->fault)();
    progress_.add("faults");
    appliance::pause(std::chrono::milliseconds(below(5) == 0 ? below(1500) : below(200)));
}

void Plan::mendAll() {
    mendDue(true);
    for (const auto& service : site_.services())
        if (!service->running())
            service->start();
    for (std::size_t i = 0; i < site_.decoders(); ++i) {
        restoreParameters(i); // floods have written others
        // Whoever repairs a parameter file applies it; that alone does not connect a decoder that has disconnected.
        if (parametersBroken_[i])
            site_.decoder(i).ctl({"apply"});
        site_.decoder(i).ctl({"connect"});
    }
}

// ---- Processes

void Plan::endPlayer() {
    const std::vector<int> players = anyDecoder().players();
    if (players.empty())
        return;
    const int pid = oneOf(players);
    const int signal = oneOf(std::vector<int>{SIGKILL, SIGKILL, SIGSEGV, SIGTERM, SIGHUP, SIGINT});
    note("signal " + std::to_string(signal) + " to player " + std::to_string(pid), "players-ended");
    kill(pid, signal);
}

// The process may end meanwhile and its number may become another's, so the signal goes through a descriptor.
void Plan::stopFor(pid_t pid, const std::string& name, int mostMs) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (process < 0)
        return;
    syscall(SYS_pidfd_send_signal, process, SIGSTOP, nullptr, 0);
    later(mostMs, [this, process, name] {
        syscall(SYS_pidfd_send_signal, process, SIGCONT, nullptr, 0);
        close(process);
        last_.push_back("           " + name + " goes on");
    });
}

void Plan::stopPlayer() {
    const std::vector<int> players = anyDecoder().players();
    if (players.empty())
        return;
    const int pid = oneOf(players);
    note("player " + std::to_string(pid) + " stops", "players-stopped");
    stopFor(pid, "player " + std::to_string(pid), below(4) == 0 ? 6000 : 800);
}

void Plan::endService() {
    Service& service = *site_.services()[index(site_.services().size())];
    const int signal = oneOf(std::vector<int>{SIGKILL, SIGKILL, SIGSEGV, SIGTERM});
    note("signal " + std::to_string(signal) + " to " + service.name(), "services-ended");
    service.signal(signal);
}

void Plan::stopService() {
    Service& service = *site_.services()[index(site_.services().size())];
    if (!service.running())
        return;
    note(service.name() + " stops", "services-stopped");
    stopFor(service.pid(), service.name(), 4000);
}

void Plan::killEncoder() {
    const std::size_t number = index(site_.encoders());
    if (encoderDown_[number])
        return;
    note("encoder " + std::to_string(number) + " is killed", "encoders-killed");
    site_.encoder(number).kill();
    encoderDown_[number] = true;
    later(6000, [this, number] {
        site_.encoder(number).again();
        encoderDown_[number] = false;
        last_.push_back("           encoder " + std::to_string(number) + " runs again");
    });
}

void Plan::stopEncoder() {
    const std::size_t number = index(site_.encoders());
    if (encoderDown_[number])
        return;
    note("encoder " + std::to_string(number) + " stops", "encoders-stopped");
    encoderDown_[number] = true;
    stopFor(site_.encoder(number).process().pid(), "encoder " + std::to_string(number), 6000);
    repairs_.push_back({repairs_.back().due, [this, number] { encoderDown_[number] = false; }});
}

void Plan::disturbEncoder() {
    static const std::vector<std::string> manners{
        "refuse",     "401",           "404",        "stall=10",     "freeze=5",
        "close=7",    "garbage",       "slow=20",    "silent",       "huge",
        "delay=700",  "wrong-cseq",    "no-session", "truncated=40", "endless-headers",
        "early-data", "close-after=3", "no-rtp"};
    const std::size_t number = index(site_.encoders());
    if (encoderDown_[number])
        return;
    const std::string manner = oneOf(manners);
    note("encoder " + std::to_string(number) + ": " + manner, "encoders-misbehaving");
    site_.encoder(number).setFaults(manner);
    encoderDown_[number] = true;
    later(6000, [this, number] {
        site_.encoder(number).setFaults("");
        encoderDown_[number] = false;
        last_.push_back("           encoder " + std::to_string(number) + " behaves");
    });
}

void Plan::killBroker() {
    if (site_.broker() == nullptr)
        return;
    note("the broker is killed", "brokers-killed");
    site_.broker()->stop();
    site_.broker()->start();
}

// ---- The network

void Plan::disturbNetwork() {
    const auto& network = site_.networks()[index(site_.networks().size())];
    const scripted::Disturbance worse{.lostEach = oneOf(std::vector<int>{1, 2, 5, 20}),
                                      .swappedEach = 2 + below(20),
                                      .delayMs = oneOf(std::vector<int>{0, 20, 100, 400})};
    note("a network loses one of " + std::to_string(worse.lostEach) + ", swaps one of " +
             std::to_string(worse.swappedEach) + ", delays " + std::to_string(worse.delayMs) + " ms",
         "network-changes");
    network->disturb(worse);
    later(4000, [&network] { network->disturb({}); });
}

void Plan::cutNetwork() {
    note("a network cuts its connections", "network-changes");
    site_.networks()[index(site_.networks().size())]->cut();
}

void Plan::disturbAll() {
    if (!netem_)
        return disturbNetwork();
    note("the whole network loses, delays and reorders", "network-changes");
    trafficControl("qdisc replace dev lo root netem loss " + std::to_string(1 + below(15)) + "% delay " +
                   std::to_string(5 + below(100)) + "ms 10ms reorder 20%");
    later(3000, [] { trafficControl("qdisc del dev lo root"); });
}

} // namespace faults
