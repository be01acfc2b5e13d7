// All connections of the server, and how many there may be.
//
// When there are too many, the oldest one without a log-in is cut, at first one of the same address. So clients without a
// log-in can't keep those with one out.
#pragma once

#include "appliance/panel/web/connection.h"
#include "appliance/panel/web/source_handle.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panel {

class Connections {
public:
    explicit Connections(const ServerLimits& limits) : limits_(limits) {}
    ~Connections();
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    const ServerLimits& limits() const { return limits_; }

    // Makes room for one more of this address. False: there is none.
    bool makeRoom(const std::string& address);
    void add(const std::shared_ptr<Connection>& connection);

private:
    using List = std::vector<std::weak_ptr<Connection>>; // the oldest first

    std::vector<std::shared_ptr<Connection>> open();
    void checkTimes();

    ServerLimits limits_;
    List list_;
    SourceHandle clock_; // while there are connections
};

} // namespace panel
