#include "appliance/panel/state/switch_times.h"

namespace panel {
namespace {

double secondsBetween(std::int64_t from, std::int64_t to) {
    return static_cast<double>(to - from) / 1e6;
}

} // namespace

void SwitchTimes::selected(int source, std::int64_t time) {
    if (last_.number != 0 && last_.source == source)
        selection_.reset(); // it shows already
    else
        selection_ = Selection{source, time};
}

std::vector<SwitchEvent> SwitchTimes::add(const std::vector<screen::FrameInfo>& infos) {
    std::vector<SwitchEvent> events;
    for (const screen::FrameInfo& info : infos) {
        if (info.number > last_.number || info.time > last_.time) // a new store begins with 1 again
            addOne(info, events);
    }
    return events;
}

void SwitchTimes::answer(const screen::FrameInfo& info, std::vector<SwitchEvent>& events) {
    if (!selection_ || info.time < selection_->time)
        return;
    const Selection selection = *selection_;
    if (info.time - selection.time > longestUs) {
        selection_.reset();
    } else if (info.source == selection.source) {
        selection_.reset();
        events.push_back(
            {SwitchEvent::Kind::Answered, info.source, secondsBetween(selection.time, info.time)});
    }
}

void SwitchTimes::addOne(const screen::FrameInfo& info, std::vector<SwitchEvent>& events) {
    const bool first = last_.number == 0;
    const bool next = info.number == last_.number + 1;
    const std::int64_t pause = info.time - last_.time;
    if (first || info.source != last_.source) {
        shownSince_ = info.time;
        events.push_back({SwitchEvent::Kind::Start, info.source, 0});
        if (!first && next && pause < longestUs)
            events.push_back({SwitchEvent::Kind::Gap, info.source, secondsBetween(last_.time, info.time)});
    } else if (info.pid != last_.pid) {
        events.push_back({SwitchEvent::Kind::Restart, info.source, 0});
    } else if (next && pause >= stallUs) {
        events.push_back({SwitchEvent::Kind::Stall, info.source, secondsBetween(last_.time, info.time)});
    }
    last_ = info;
    answer(info, events);
}

} // namespace panel
