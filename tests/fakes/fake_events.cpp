#include "tests/fakes/fake_events.h"

#include <algorithm>
#include <array>
#include <string>

namespace fake {

std::deque<Event> queue;
std::map<int, int> queueLimits;
std::function<bool()> onWait;
std::vector<Event> taken;
int takeResult = 0;
int nextTimerId = 65536;
int lastTimerId = 0;
std::int64_t lastTimeout = 0;
std::deque<int> barrierResults;
std::function<int(int, std::span<const int>)> onMasterBarrier;

void resetEvents() {
    queue.clear();
    queueLimits.clear();
    onWait = nullptr;
    taken.clear();
    takeResult = 0;
    nextTimerId = 65536;
    lastTimerId = 0;
    lastTimeout = 0;
    barrierResults.clear();
    onMasterBarrier = nullptr;
}

bool deliver(const Event& event) {
    const auto limit = queueLimits.find(event.id);
    const int maximum = limit == queueLimits.end() ? defaultQueueLimit : limit->second;
    const auto queued =
        std::count_if(queue.begin(), queue.end(), [&](const Event& other) { return other.id == event.id; });
    if (queued >= maximum)
        return false;
    queue.push_back(event);
    return true;
}

Event event(int id, int value1, int value2) {
    return Event{.id = id, .value1 = value1, .value2 = value2, .payload = {}};
}

namespace {

constexpr int idCount = 14;
constexpr std::uint32_t unset = 0;

struct Selection {
    std::array<std::uint32_t, idCount> actions{}; // by identifier
    std::uint32_t others = unset;
    std::string text; // as it is recorded
};

std::string actionText(std::uint32_t action) {
    switch (action) {
    case ACTION_TAKE:
        return "";
    case ACTION_SKIP:
        return "skip ";
    case ACTION_DISCARD:
        return "discard ";
    default:
        return "action" + std::to_string(action) + " ";
    }
}

// False for a list without an end.
bool readSelection(const SelectionWord* words, std::size_t count, Selection& selection) {
    for (std::size_t i = 0; i < count && i <= idCount; ++i) {
        const std::uint32_t id = words[i] & 0xffff;
        const std::uint32_t action = words[i] >> 16 == 0 ? ACTION_TAKE : words[i] >> 16;
        const std::string comma = selection.text.empty() ? "" : ",";
        if (id == EID_OTHER) {
            selection.others = action;
            if (action != ACTION_SKIP)
                selection.text += comma + "others " + actionText(action);
            return true;
        }
        selection.text += comma + actionText(action) + std::to_string(id);
        if (id < idCount)
            selection.actions[id] = action;
    }
    return false;
}

std::uint32_t actionFor(const Selection& selection, int id) {
    const bool listed = id >= 0 && id < idCount && selection.actions[static_cast<std::size_t>(id)] != unset;
    return listed ? selection.actions[static_cast<std::size_t>(id)] : selection.others;
}

bool walk(const Selection& selection, Event* out) {
    for (auto event = queue.begin(); event != queue.end();) {
        const std::uint32_t action = actionFor(selection, event->id);
        if (action == ACTION_SKIP) {
            ++event;
            continue;
        }
        const Event removed = *event;
        event = queue.erase(event);
        if (action == ACTION_TAKE) {
            *out = removed;
            taken.push_back(removed);
            return true;
        }
    }
    return false;
}

} // namespace
} // namespace fake

int takeEvent(Event* out, const SelectionWord* words, std::size_t count, bool wait) {
    fake::Selection selection;
    const bool complete = fake::readSelection(words, count, selection);
    fake::calls.push_back((wait ? "getNextEvent(" : "peekNextEvent(") + selection.text + ")");
    if (fake::takeResult != 0)
        return fake::takeResult;
    if (!complete)
        return -1;
    while (!fake::walk(selection, out)) {
        if (!wait)
            return -1;
        if (!fake::onWait || !fake::onWait())
            throw fake::WouldBlock("getNextEvent(" + selection.text + ") would never end");
    }
    return 0;
}

void pushEvent(const Event& event) {
    fake::calls.push_back("pushEvent(" + std::to_string(event.id) + "," + std::to_string(event.value1) + "," +
                          std::to_string(event.value2) + ")");
    fake::deliver(event);
}

void flushEventQueue() {
    fake::calls.emplace_back("flushEventQueue()");
    fake::queue.clear();
}

void setQueueLimit(int id, int maximum) {
    fake::calls.push_back("setQueueLimit(" + std::to_string(id) + "," + std::to_string(maximum) + ")");
    fake::queueLimits[id] = maximum;
}

int setTimeout(std::int64_t milliseconds) {
    fake::calls.push_back("setTimeout(" + std::to_string(milliseconds) + ")");
    fake::lastTimeout = milliseconds;
    return fake::lastTimerId = fake::nextTimerId++;
}

int masterBarrierOf(int barrierId, std::span<const int> pids) {
    std::string call = "masterBarrier(" + std::to_string(barrierId);
    for (const int pid : pids)
        call += "," + std::to_string(pid);
    fake::calls.push_back(call + ")");
    if (fake::onMasterBarrier)
        return fake::onMasterBarrier(barrierId, pids);
    if (fake::barrierResults.empty())
        return 0;
    const int result = fake::barrierResults.front();
    fake::barrierResults.pop_front();
    return result;
}
