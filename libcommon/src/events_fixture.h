// What the tests of events share.
#pragma once

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/events.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/msg.h>

inline Event eventOf(int id, int value1 = 0, int value2 = 0) {
    Event event{};
    event.id = id;
    event.value1 = value1;
    event.value2 = value2;
    return event;
}

inline int send(int id, int value1 = 0, int value2 = 0) {
    const Event event = eventOf(id, value1, value2);
    return sendEvent(&event);
}

// Sends and returns 0 or the errno of the failure, for children's results.
inline int sendError(int id, int value1 = 0) {
    return send(id, value1) == 0 ? 0 : errno;
}

inline std::atomic<int> handled{0};

inline void sendFromHandler(int) {
    const int saved = errno;
    if (send(EID_SELECT, 1) == 0)
        ++handled;
    errno = saved;
}

inline void installHandler(int signo, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signo, &action, nullptr);
}

class Events : public ApplianceTest {
protected:
    ~Events() override { removeEventQueue(); }

    static std::string idFile() { return file("/run/decoder/events.id"); }
    static int queueId() {
        int id = -1;
        EXPECT_EQ(std::sscanf(read(idFile()).c_str(), "%d", &id), 1);
        return id;
    }
    static msqid_ds state(int queue) {
        msqid_ds result{};
        EXPECT_EQ(msgctl(queue, IPC_STAT, &result), 0);
        return result;
    }
    static bool queueExists(int queue) {
        msqid_ds result{};
        return msgctl(queue, IPC_STAT, &result) == 0;
    }
    static int queuesOf(uid_t user) {
        msginfo info{};
        int count = 0;
        const int highest = msgctl(0, MSG_INFO, reinterpret_cast<msqid_ds*>(&info));
        for (int i = 0; i <= highest; ++i) {
            msqid_ds queue{};
            if (msgctl(i, MSG_STAT_ANY, &queue) >= 0 && queue.msg_perm.cuid == user)
                ++count;
        }
        return count;
    }
    // The share of a queue that processes other than the owner may fill.
    static std::size_t outsidersShare() {
        const std::size_t bytes = state(queueId()).msg_qbytes;
        return (bytes - bytes / 4) / sizeof(Event);
    }
};
