// What the API's handlers share. Main loop's thread.
#pragma once

#include "appliance/journal/journal.h"
#include "appliance/panel/api/metrics.h"
#include "appliance/panel/api/requests.h"
#include "appliance/panel/fleet/fleet.h"
#include "appliance/panel/pictures/picture_maker.h"
#include "appliance/panel/state/observer.h"
#include "appliance/panel/web/event_streams.h"
#include "appliance/panel/web/worker.h"

#include <functional>
#include <memory>
#include <string>

namespace panel {

struct Room {
    explicit Room(EventStreams& eventStreams) : streams(eventStreams) {}

    EventStreams& streams;
    Metrics metrics;
    std::unique_ptr<Observer> observer;
    std::unique_ptr<PictureMaker> pictures;
    std::unique_ptr<Journal> journal; // null: there is none
    std::unique_ptr<Fleet> fleet;

    // Three threads, so that a select never waits for a camera that does not answer.
    Worker commands{32};    // a moment each: events, parameters
    Worker longCommands{8}; // up to 30 s each, one at a time: connect, add, order
    Worker readings{16};    // large pictures, the keeper of warm sources
};

// The source that the request's part {source} names, by its number.
const SourceReport& askedSource(const Room& room, const Request& request);

// Runs a command on one of the room's workers and answers with what it returns. A question right after the answer is about
// the decoder after the command.
void answerCommand(Room& room, Worker& worker, const Answer& answer, std::function<Response()> command);

// Each adds its routes.
void addStateRoutes(Routes& routes, Room& room);
void addSourceRoutes(Routes& routes, Room& room);
void addControlRoutes(Routes& routes, Room& room);
void addFleetRoutes(Routes& routes, Room& room);
void addParameterRoutes(Routes& routes, Room& room);
void addPictureRoutes(Routes& routes, Room& room);
void addMetricsRoute(Routes& routes, Room& room);
void addDocumentRoute(Routes& routes);

} // namespace panel
