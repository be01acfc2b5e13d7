// A random plan of faults for a site: what is broken, when, and when it is mended again. All choices come from the seed.
#pragma once

#include "tests/appliance/event_sender.h"
#include "tests/faults/progress.h"
#include "tests/faults/site.h"

#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace faults {

class Plan {
public:
    Plan(Site& site, Progress& progress, unsigned seed);
    ~Plan();
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;

    // Breaks something, mends what is due, and starts again what has ended. Then it waits for a moment.
    void step();

    // Mends everything: continues what is stopped, starts encoders and services, restores the files and the network,
    // connects both decoders.
    void mendAll();

    // Starts again the services that have ended, each after a second.
    void keepRunning();

    // What was done last, one line each, for a report.
    const std::deque<std::string>& last() const { return last_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Repair {
        Clock::time_point due;
        std::function<void()> mend;
    };
    using Fault = void (Plan::*)();
    struct Row {
        int weight;
        Fault fault;
    };
    static const std::vector<Row>& rows();

    // Random choices.
    int below(int limit);
    std::size_t index(std::size_t size) { return static_cast<std::size_t>(below(static_cast<int>(size))); }
    template<class T>
    const T& oneOf(const std::vector<T>& values) {
        return values[index(values.size())];
    }
    appliance::Appliance& anyDecoder() { return site_.decoder(index(site_.decoders())); }
    // A source that the decoder has. Manual mode tries a source that was selected for ever, so one that does not exist
    // never comes back.
    int sourceOf(std::size_t decoder) { return below(site_.sourcesOf(decoder)); }

    void note(const std::string& what, const char* figure);
    void later(int mostMs, std::function<void()> mend);
    void mendDue(bool all);

    // Processes.
    void endPlayer();
    void stopPlayer();
    void endService();
    void stopService();
    void killEncoder();
    void stopEncoder();
    void disturbEncoder();
    void killBroker();
    void stopFor(pid_t pid, const std::string& name, int mostMs);

    // Files.
    void breakParameters();
    void restoreParameters(std::size_t number);
    void breakStatus();
    void breakPicture();

    // Floods.
    void floodEvents();
    void floodPresses();
    void floodParameters();
    void floodRequests();

    // What people do.
    void select();
    void alarm();
    void lock();
    void reconnect();
    void flush();

    // The network.
    void disturbNetwork();
    void cutNetwork();
    void disturbAll();

    Site& site_;
    Progress& progress_;
    std::mt19937 random_;
    std::deque<Repair> repairs_;
    std::deque<std::string> last_;
    std::vector<bool> encoderDown_;
    std::vector<bool> parametersBroken_; // of each decoder, in this round
    Clock::time_point begin_ = Clock::now();
    bool netem_; // the kernel can disturb the whole namespace
};

} // namespace faults
