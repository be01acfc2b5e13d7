// event_bench: what the supervisor's event queues cost.
//
//   path  from the sender to the main thread that sleeps in a take, beside the same way through a bare System V queue and a
//         condition variable, with the line that each event leaves in the log ("bare") and without it ("silent")
//   take  a selective take that walks over 255 events that it leaves, beside one walk over such a list
//
// Both sides in turn, in microseconds, as lines "sample ROW SIDE VALUE".
#include "bench/memory_files.h"
#include "bench/samples.h"
#include "events/event_handler.h"
#include "events/event_queue.h"
#include "recorder/recorder.h"

#include <libcommon/libcommon.h>

#include <atomic>
#include <chrono>
#include <CLI/CLI.hpp>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <mutex>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int queued = 256;
constexpr int takesInOne = 50; // takes that are measured as one

double microsecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

// Sends on its own thread after the taker has fallen asleep, and remembers when.
template<class Send>
class Sender {
public:
    explicit Sender(Send send)
        : thread_([this, send] {
              std::this_thread::sleep_for(std::chrono::milliseconds(2));
              began_ = Clock::now();
              send();
          }) {}
    ~Sender() { thread_.join(); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    Clock::time_point began() const { return began_; } // valid once the taker has what was sent

private:
    Clock::time_point began_;
    std::thread thread_;
};

// The bare way: a queue, a thread that takes from it, and a condition variable that wakes the main thread.
class BareWay {
public:
    explicit BareWay(bool logs)
        : logs_(logs), queue_(msgget(IPC_PRIVATE, IPC_CREAT | 0600)), handler_([this] { run(); }) {}
    ~BareWay() {
        msgctl(queue_, IPC_RMID, nullptr);
        handler_.join();
    }
    BareWay(const BareWay&) = delete;
    BareWay& operator=(const BareWay&) = delete;

    void send() const {
        Message message;
        msgsnd(queue_, &message, sizeof message.words, 0);
    }
    void take() {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return count_ > 0; });
        --count_;
    }

private:
    struct Message {
        long type = 1;
        std::int32_t words[13]{};
    };
    void run() {
        Message message;
        while (msgrcv(queue_, &message, sizeof message.words, 0, 0) >= 0) {
            const std::lock_guard lock(mutex_);
            ++count_;
            if (logs_)
                logmsg(7, "eventHandler() adding event to queue (id=%d, val=(%d,%d))", message.words[0],
                       message.words[1], message.words[2]);
            arrived_.notify_one();
        }
    }

    bool logs_;
    int queue_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    int count_ = 0; // guarded by mutex_
    std::thread handler_;
};

Event eventOf(int id) {
    Event event{};
    event.id = id;
    return event;
}

void measureBarePath(BareWay& way, const char* side) {
    const Sender sender([&way] { way.send(); });
    way.take();
    bench::tellSample("path", side, microsecondsSince(sender.began()));
}

void measurePath(int repetitions) {
    startEventHandler();
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // it empties the queue when it starts
    BareWay bare(true);
    BareWay silent(false);
    for (int i = 0; i < repetitions; ++i) {
        {
            const Sender sender([] {
                const Event event = eventOf(EID_SELECT);
                sendEvent(&event);
            });
            Event taken{};
            getNextEvent(&taken, take(EID_SELECT), SKIP_OTHERS);
            bench::tellSample("path", "ours", microsecondsSince(sender.began()));
        }
        measureBarePath(bare, "bare");
        measureBarePath(silent, "silent");
    }
}

double oneTake() {
    double sum = 0;
    for (int i = 0; i < takesInOne; ++i) {
        pushEvent(eventOf(EID_SELECT));
        Event taken{};
        const Clock::time_point begin = Clock::now();
        peekNextEvent(&taken, take(EID_SELECT), SKIP_OTHERS);
        sum += microsecondsSince(begin);
    }
    return sum / takesInOne;
}

double oneWalk(std::list<Event>& events) {
    double sum = 0;
    for (int i = 0; i < takesInOne; ++i) {
        events.push_back(eventOf(EID_SELECT));
        const Clock::time_point begin = Clock::now();
        auto event = events.begin();
        while (event != events.end() && event->id != EID_SELECT)
            ++event;
        events.erase(event);
        sum += microsecondsSince(begin);
    }
    return sum / takesInOne;
}

void measureTake(int repetitions) {
    std::list<Event> events;
    flushEventQueue();
    for (int i = 1; i < queued; ++i) {
        pushEvent(eventOf(EID_ALARM));
        events.push_back(eventOf(EID_ALARM));
    }
    for (int i = 0; i < repetitions; ++i) {
        bench::tellSample("take", "ours", oneTake());
        bench::tellSample("take", "bare", oneWalk(events));
    }
    flushEventQueue();
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Measures the supervisor's event queues."};
    int repetitions = 200;
    app.add_option("--repetitions", repetitions, "measurements of each side")->check(CLI::Range(1, 100'000));
    bool records = true;
    app.add_flag("!--no-recording", records, "without the recorder");
    CLI11_PARSE(app, argc, argv);
    bench::keepFilesInMemory();
    std::string root = (std::filesystem::temp_directory_path() / "event-bench-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr)
        return 1;
    std::filesystem::create_directories(root + "/etc/decoder");
    setenv("APPLIANCE_ROOT", root.c_str(), 1);
    setenv("LIBCOMMON_LOG", (root + "/log").c_str(), 1);
    if (initEventQueue() != 0)
        return 1;
    // As in a decoder, unless the row is measured without.
    if (records && !recorder::startRecordingTo(root + "/recording", std::size_t{1} << 20))
        return 1;
    measureTake(repetitions);
    measurePath(repetitions);
    removeEventQueue(); // ends the event handler thread
    libcommon::Sweep swept;
    libcommon::sweep(swept);
    std::filesystem::remove_all(root);
    return 0;
}
