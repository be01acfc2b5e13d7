// What the decoder does, its sources and its journal.
#include "appliance/panel/api/room.h"
#include "appliance/settings/secrets.h"
#include "appliance/reporting/explanation.h"

#include <libcommon/status.h>

#include <charconv>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

constexpr std::size_t usualLines = 200;

json explanationOf(int index) {
    const std::vector<TraceLine> trace = readTrace(::status(index, "DetectionTrace"));
    if (trace.empty())
        throw RequestRefused(
            409, "this source was not detected: it was not shown yet, or it shares the detection of "
                 "another source of the same encoder input");
    json object{{"steps", explanationJson(trace)}};
    const std::string reason = ::status(index, "Reason");
    object["reason"] = reason.empty() ? json() : json(reason);
    hideSecrets(object);
    return object;
}

std::size_t wantedLines(const Request& request) {
    const auto found = request.query.find("lines");
    if (found == request.query.end())
        return usualLines;
    const std::string& text = found->second;
    std::size_t lines = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), lines);
    if (error != std::errc() || end != text.data() + text.size() || lines < 1 || lines > Journal::mostLines)
        throw RequestRefused(400,
                             "\"lines\" has to be a number from 1 to " + std::to_string(Journal::mostLines));
    return lines;
}

json journalLines(Room& room, std::size_t lines) {
    json list = json::array();
    if (room.journal != nullptr) {
        for (const JournalLine& line : room.journal->last(lines))
            list.push_back(journalJson(line));
    }
    return list;
}

} // namespace

const SourceReport& askedSource(const Room& room, const Request& request) {
    const std::string& text = request.parts.at("source");
    const std::vector<SourceReport>& sources = room.observer->sources();
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (error != std::errc() || end != text.data() + text.size() || index >= sources.size())
        throw RequestRefused(404, "there is no source with this number");
    return sources[index];
}

void addStateRoutes(Routes& routes, Room& room) {
    routes.add("GET", "/api/v1/status", Role::Viewer, [&room](const Request&, const Answer& answer) {
        room.observer->refresh();
        answer(objectResponse(room.observer->statusNow()));
    });
    routes.add("GET", "/api/v1/sources", Role::Viewer, [&room](const Request&, const Answer& answer) {
        room.observer->refresh();
        answer(objectResponse(room.observer->sourcesNow()));
    });
    routes.add(
        "GET", "/api/v1/sources/{source}", Role::Viewer,
        [&room](const Request& request, const Answer& answer) {
            room.observer->refresh();
            const int index = askedSource(room, request).index;
            answer(objectResponse(room.observer->sourcesNow()["sources"][static_cast<std::size_t>(index)]));
        });
    routes.add("GET", "/api/v1/sources/{source}/explanation", Role::Viewer,
               [&room](const Request& request, const Answer& answer) {
                   answer(objectResponse(explanationOf(askedSource(room, request).index)));
               });
    routes.add("GET", "/api/v1/journal", Role::Operator,
               [&room](const Request& request, const Answer& answer) {
                   answer(objectResponse(journalLines(room, wantedLines(request))));
               });
}

} // namespace panel
