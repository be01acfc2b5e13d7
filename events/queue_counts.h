// How many events of each identifier are in the internal queue, and how many may be.
//
// Counts only; event_queue.cpp has the one instance and guards it with its mutex.
#pragma once

#include <map>

class QueueCounts {
public:
    void setLimit(int id, int maximum);
    int limit(int id) const;
    int count(int id) const;

    // Counts one more event of the identifier; false, and nothing changes, when its limit is reached.
    bool countUp(int id);

    // Counts one event less. A wrong count is logged at level 3 and left as it is.
    void countDown(int id);

    // Forgets all counts; the limits stay.
    void clear();

private:
    std::map<int, int> limits_;               // identifiers without an entry: defaultQueueLimit
    std::map<int, int> currentInQueueValues_; // identifiers without a queued event have no entry

    friend struct QueueCountsTest;
};
