#include "appliance/panel/web/connections.h"

#include <algorithm>

namespace panel {
namespace {

using Open = std::vector<std::shared_ptr<Connection>>;

// Cuts the oldest of those without a log-in for which `wanted` is true, if there are `most` of them.
template<class Wanted>
void cutOldest(Open& open, std::size_t most, Wanted wanted) {
    const auto matches = [&wanted](const auto& connection) {
        return !connection->isKnown() && wanted(*connection);
    };
    if (static_cast<std::size_t>(std::count_if(open.begin(), open.end(), matches)) < most)
        return;
    const auto oldest = std::find_if(open.begin(), open.end(), matches);
    if (oldest == open.end())
        return;
    (*oldest)->cut();
    open.erase(oldest);
}

} // namespace

Connections::~Connections() {
    for (const auto& connection : open())
        connection->cut();
}

Open Connections::open() {
    Open connections;
    for (const auto& weak : list_) {
        if (auto connection = weak.lock(); connection != nullptr && connection->isOpen())
            connections.push_back(std::move(connection));
    }
    list_.assign(connections.begin(), connections.end());
    return connections;
}

bool Connections::makeRoom(const std::string& address) {
    Open connections = open();
    cutOldest(connections, limits_.strangersOfAddress,
              [&address](const Connection& connection) { return connection.address() == address; });
    cutOldest(connections, limits_.strangers, [](const Connection&) { return true; });
    if (connections.size() >= limits_.connections)
        cutOldest(connections, 1, [](const Connection&) { return true; });
    return connections.size() < limits_.connections;
}

void Connections::add(const std::shared_ptr<Connection>& connection) {
    list_.push_back(connection);
    if (clock_ == nullptr)
        clock_ = every(1000, [this] { checkTimes(); });
}

void Connections::checkTimes() {
    const std::int64_t now = g_get_monotonic_time();
    const Open connections = open();
    for (const auto& connection : connections)
        connection->checkTime(now);
    if (connections.empty())
        clock_.reset();
}

} // namespace panel
