#include "events/queue_counts.h"

#include "events/event_queue.h"

#include <libcommon/log.h>

void QueueCounts::setLimit(int id, int maximum) {
    limits_[id] = maximum;
}

int QueueCounts::limit(int id) const {
    const auto found = limits_.find(id);
    return found == limits_.end() ? defaultQueueLimit : found->second;
}

int QueueCounts::count(int id) const {
    const auto found = currentInQueueValues_.find(id);
    return found == currentInQueueValues_.end() ? 0 : found->second;
}

bool QueueCounts::countUp(int id) {
    const int queued = count(id);
    if (queued >= limit(id))
        return false;
    currentInQueueValues_[id] = queued + 1;
    return true;
}

void QueueCounts::countDown(int id) {
    const auto found = currentInQueueValues_.find(id);
    if (found == currentInQueueValues_.end())
        logmsg(3, "Could not find nbr of events in queue.");
    else if (found->second == 1)
        currentInQueueValues_.erase(found);
    else if (found->second > 1)
        --found->second;
    else
        logmsg(3, "Illegal value in currentInQueueValues:%d", found->second);
}

void QueueCounts::clear() {
    currentInQueueValues_.clear();
}
