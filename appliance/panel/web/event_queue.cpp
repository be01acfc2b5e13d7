#include "appliance/panel/web/event_queue.h"

#include <algorithm>

namespace panel {
namespace {

bool waitsInOrder(std::string_view type) {
    return type == "change" || type == "journal";
}

} // namespace

void EventQueue::drop(std::deque<Waiting>::iterator which) {
    bytes_ -= which->text.size();
    waiting_.erase(which);
}

void EventQueue::makeRoom(std::string_view type) {
    const auto same = [type](const Waiting& event) { return event.type == type; };
    const auto oldest = std::find_if(waiting_.begin(), waiting_.end(), same);
    if (oldest == waiting_.end())
        return;
    if (!waitsInOrder(type) ||
        static_cast<std::size_t>(std::count_if(waiting_.begin(), waiting_.end(), same)) >= mostQueued_)
        drop(oldest);
}

void EventQueue::add(std::string_view type, std::string_view json) {
    makeRoom(type);
    std::string text = "event: ";
    text.append(type).append("\ndata: ").append(json).append("\n\n");
    bytes_ += text.size();
    waiting_.push_back({std::string(type), std::move(text)});
}

std::string EventQueue::take() {
    if (waiting_.empty())
        return {};
    std::string text = std::move(waiting_.front().text);
    waiting_.pop_front();
    bytes_ -= text.size();
    return text;
}

} // namespace panel
