#include "appliance/panel/web/event_streams.h"

#include "appliance/panel/web/event_listener.h"
#include "appliance/panel/web/source_handle.h"

#include <algorithm>

namespace panel {

struct EventStreams::State {
    StreamLimits limits;
    First first;
    std::function<void(std::size_t)> changed;
    std::vector<std::shared_ptr<EventListener>> listeners;
    SourceHandle clock; // while there are listeners
    unsigned seconds = 0;

    void tellCount() const {
        if (changed)
            changed(listeners.size());
    }

    // Over a copy: a listener that ends takes itself out of the list.
    void tick() {
        const std::int64_t now = g_get_monotonic_time();
        const bool beat = ++seconds % limits.beatEvery == 0;
        for (const auto& listener : std::vector(listeners)) {
            listener->checkTime(now);
            if (beat)
                listener->send("beat", "{}");
        }
    }
};

EventStreams::EventStreams(const StreamLimits& limits) : state_(std::make_unique<State>()) {
    state_->limits = limits;
}

EventStreams::~EventStreams() = default;

void EventStreams::publish(std::string_view type, std::string json, Role least) {
    for (const auto& listener : state_->listeners) {
        if (listener->info().role >= least)
            listener->send(type, json);
    }
}

void EventStreams::setFirst(First first) {
    state_->first = std::move(first);
}

void EventStreams::onCount(std::function<void(std::size_t)> changed) {
    state_->changed = std::move(changed);
}

std::size_t EventStreams::count() const {
    return state_->listeners.size();
}

const StreamLimits& EventStreams::limits() const {
    return state_->limits;
}

void EventStreams::add(std::shared_ptr<EventListener> listener) {
    state_->listeners.push_back(listener);
    if (state_->clock == nullptr)
        state_->clock = every(1000, [this] { state_->tick(); });
    if (state_->first) {
        for (const Event& event : state_->first(listener->info()))
            listener->send(event.type, event.json);
    }
    state_->tellCount();
}

void EventStreams::remove(const EventListener* listener) {
    const std::size_t before = state_->listeners.size();
    std::shared_ptr<EventListener> removed; // destroyed after the list is in order
    std::erase_if(state_->listeners, [&](const auto& kept) {
        if (kept.get() == listener)
            removed = kept;
        return kept.get() == listener;
    });
    if (state_->listeners.empty())
        state_->clock.reset();
    if (state_->listeners.size() != before)
        state_->tellCount();
}

void EventStreams::endSession(std::string_view session) {
    for (const auto& listener : std::vector(state_->listeners)) {
        if (session.empty() || listener->info().session != session)
            continue;
        listener->send("session", R"({"user":"","role":"none","expires":null})");
        listener->end();
    }
}

void EventStreams::endAll() {
    for (const auto& listener : std::vector(state_->listeners))
        listener->end();
}

} // namespace panel
