#include "appliance/panel/api/room.h"
#include "appliance/streams/kept_status.h"

#include <nlohmann/json.hpp>

namespace panel {
namespace {

Response metricsResponse(Room& room) {
    room.observer->refresh();
    Response response;
    response.type = Metrics::type;
    response.body =
        room.metrics.text({room.observer->status(), room.observer->sources(), decoderName(),
                           room.streams.count(), room.pictures->made(), room.pictures->secondsSpent()});
    return response;
}

} // namespace

void addMetricsRoute(Routes& routes, Room& room) {
    RouteRules rules;
    rules.least = Role::Viewer;
    rules.purpose = Purpose::Metrics;
    routes.add("GET", "/metrics", rules, [&room](const Request&, const Answer& answer) {
        // The keeper is asked first, because it answers at once or not at all.
        const auto warm = std::make_shared<std::vector<streams::KeptReport>>();
        const bool taken = room.readings.run(
            [warm] { *warm = streams::askKeeper().value_or(std::vector<streams::KeptReport>()); },
            [&room, warm, answer](const std::exception_ptr&) {
                room.observer->setWarm(std::move(*warm));
                answer(metricsResponse(room));
            });
        if (!taken)
            answer(metricsResponse(room));
    });
}

} // namespace panel
