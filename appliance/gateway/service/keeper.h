// Reads the gateway's sources from the parameter file, completes their sections, and writes their status.
//
// Parameter file and status store have locks that may wait for seconds, so all of it happens on a thread of its own: the
// streams never wait for a file.
#pragma once

#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/service/source_plan.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace gateway {

class Keeper {
public:
    // `port`: the gateway's own. `take` gets each new plan on the loop's thread; the loop must outlive the keeper.
    Keeper(EventLoop& loop, int port, std::function<void(const SourcePlan&)> take);
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    // Reads and completes the sources once, on the calling thread, then goes on by itself whenever the file changes.
    void start();

    // The gateway's port has changed: the sources' addresses follow. Any thread.
    void setPort(int port);

    // What a web server was found to send, by the URL's text: the type of its source follows. Any thread.
    void learn(const std::string& url, bool pictures);

    // Writes a status value of the source with this index soon. Any thread.
    void setStatus(int index, const std::string& key, const std::string& value);

private:
    void run();
    SourcePlan plan();
    void lookAtFile();
    void lookAtScreen();
    bool complete(const SourcePlan& plan) const;
    void writeStatus();

    EventLoop& loop_;
    const std::function<void(const SourcePlan&)> take_;
    std::string stamp_;       // of the version of the file that was read last
    std::string screenStamp_; // of the files that told the screen's size
    bool smallScreen_ = false;
    std::thread thread_;

    std::mutex lock_;
    std::condition_variable changed_;
    int port_;                                                   // guarded by lock_
    LearnedKinds learned_;                                       // guarded by lock_
    bool planAgain_ = false;                                     // guarded by lock_
    bool ending_ = false;                                        // guarded by lock_
    std::map<std::pair<int, std::string>, std::string> waiting_; // status values; guarded by lock_
};

} // namespace gateway
