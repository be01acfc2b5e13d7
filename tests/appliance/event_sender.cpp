#include "tests/appliance/event_sender.h"

#include <cstdint>
#include <cstdlib>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace appliance {

int eventQueue(const Appliance& decoder) {
    const std::string record = readFile(decoder.root() + "/run/decoder/events.id"); // "ID PID STAMP"
    return record.empty() ? -1 : std::atoi(record.c_str());
}

bool sendRaw(int queue, int id, int value1, int value2) {
    struct {
        long type = 1;
        std::int32_t words[13]{};
    } message;
    message.words[0] = id;
    message.words[1] = value1;
    message.words[2] = value2;
    return msgsnd(queue, &message, sizeof message.words, IPC_NOWAIT) == 0;
}

Flood::Flood(const Appliance& decoder, int id, int value1, std::chrono::microseconds between) {
    const int queue = eventQueue(decoder);
    thread_ = std::thread([=, this] {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!over_ && std::chrono::steady_clock::now() < end) {
            if (sendRaw(queue, id, value1)) {
                ++sent_;
            }
            std::this_thread::sleep_for(between);
        }
    });
}

Flood::~Flood() {
    over_ = true;
    thread_.join();
}

} // namespace appliance
