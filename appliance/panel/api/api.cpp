#include "appliance/panel/api/api.h"

#include "appliance/panel/api/embedded.h"
#include "appliance/panel/api/room.h"
#include "appliance/panel/fleet/broker_connection.h"
#include "appliance/reporting/json_text.h"
#include "appliance/streams/kept_status.h"

#include <libcommon/params.h>

#include <glib-unix.h>
#include <map>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

constexpr unsigned warmEveryMs = 2000;
constexpr std::size_t mostFollowed = 200; // lines of the journal at a time

PictureSettings pictureSettings() {
    const ParamWrapper configuration(0, false);
    PictureSettings settings;
    if (const int rate = configuration["Panel.PictureRate"].toInt(); rate > 0)
        settings.mostPerSecond = rate;
    if (const int width = configuration["Panel.PictureWidth"].toInt(); width > 0)
        settings.mostWidth = width;
    return settings;
}

std::string pictureEvent(const MadePicture& picture) {
    return jsonLine({{"number", picture.number},
                     {"width", picture.width},
                     {"height", picture.height},
                     {"blank", picture.blank},
                     {"source", picture.source},
                     {"frame", picture.frame},
                     {"url", "/api/v1/pictures/" + std::to_string(picture.number) + ".jpg"}});
}

} // namespace

class Api::State : public std::enable_shared_from_this<Api::State> {
public:
    explicit State(EventStreams& streams) : room_(streams) {}
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void begin(Router& router);

private:
    void makeObserver();
    void makePictures();
    void makeFleet();
    void followJournal();
    void takeJournal();
    void setViewers(std::size_t viewers);
    void askWarm();
    std::vector<Event> first(const ListenerInfo& listener) const;
    void onMainLoop(void (State::*what)());
    void tellPicture();
    void tellStill() { room_.observer->lookAtSources(); }
    std::optional<StillInfo> stillOf(const std::string& source);

    Room room_;
    std::string lastState_; // of the supervisor's state machine
    unsigned journalId_ = 0;
    unsigned warmId_ = 0;
    bool asksWarm_ = false;
    std::uint64_t toldPicture_ = 0;
    std::map<std::string, std::pair<std::int64_t, StillInfo>> stills_; // version and what is told of it
};

Api::State::~State() {
    for (const unsigned id : {journalId_, warmId_}) {
        if (id != 0)
            g_source_remove(id);
    }
    room_.streams.onCount(nullptr);
    room_.streams.setFirst(nullptr);
}

// Calls the function on the main loop's thread, unless this object has gone by then. Any thread.
void Api::State::onMainLoop(void (State::*what)()) {
    struct Call {
        std::weak_ptr<State> state;
        void (State::*what)();
    };
    const auto run = [](gpointer data) -> gboolean {
        const auto* call = static_cast<Call*>(data);
        if (const std::shared_ptr<State> state = call->state.lock())
            (state.get()->*call->what)();
        return G_SOURCE_REMOVE;
    };
    g_idle_add_full(G_PRIORITY_DEFAULT, run, new Call{weak_from_this(), what},
                    [](gpointer data) { delete static_cast<Call*>(data); });
}

// The still's time in words is made once, so that it is the same in each list.
std::optional<StillInfo> Api::State::stillOf(const std::string& source) {
    if (room_.pictures == nullptr)
        return std::nullopt;
    const std::optional<Still> still = room_.pictures->stills().find(source);
    if (!still)
        return std::nullopt;
    auto& [version, info] = stills_[source];
    if (version != still->version) {
        version = still->version;
        info = {std::to_string(still->version), wallTime(still->time)};
    }
    return info;
}

void Api::State::makeObserver() {
    const auto tell = [this](const char* type) {
        return [this, type](const std::string& json) { room_.streams.publish(type, json); };
    };
    ObserverNews news;
    news.status = tell("status");
    news.sources = tell("sources");
    news.change = tell("change");
    news.switched = [this](const SwitchEvent& event, const std::string& source) {
        room_.metrics.switched(event, source);
    };
    news.error = [this](const std::string& code, const std::string& source) {
        room_.metrics.error(code, source);
    };
    news.configured = [this] { room_.fleet->configure(readFleetSettings()); };
    news.sourceChanged = [this] {
        if (room_.pictures != nullptr)
            room_.pictures->sourceChanged();
    };
    room_.observer = std::make_unique<Observer>(
        std::move(news), [this](const std::string& source) { return stillOf(source); });
}

void Api::State::makePictures() {
    PictureMaker::News news;
    news.picture = [this](const MadePicture&) { onMainLoop(&State::tellPicture); };
    news.still = [this] { onMainLoop(&State::tellStill); };
    room_.pictures = std::make_unique<PictureMaker>(std::move(news), pictureSettings);
}

void Api::State::makeFleet() {
    room_.fleet =
        std::make_unique<Fleet>(std::make_unique<BrokerConnection>(),
                                [this](const std::string& json) { room_.streams.publish("fleet", json); });
    room_.fleet->configure(readFleetSettings());
}

void Api::State::tellPicture() {
    const MadePicture picture = room_.pictures->picture(0);
    if (picture.number == toldPicture_)
        return;
    toldPicture_ = picture.number;
    room_.streams.publish("picture", pictureEvent(picture));
}

void Api::State::takeJournal() {
    std::size_t told = 0;
    std::string state = lastState_;
    room_.journal->follow([&](const JournalLine& line) {
        if (const std::optional<std::string> entered = enteredState(line))
            state = *entered;
        if (++told <= mostFollowed)
            room_.streams.publish("journal", jsonLine(journalJson(line)), Role::Operator);
    });
    if (state == lastState_)
        return;
    lastState_ = state;
    room_.observer->setMachineState(state);
}

void Api::State::followJournal() {
    room_.journal = openJournal();
    if (room_.journal == nullptr || room_.journal->fd() < 0)
        return;
    for (const JournalLine& line : room_.journal->last(Journal::mostLines)) {
        if (const std::optional<std::string> entered = enteredState(line))
            lastState_ = *entered;
    }
    room_.observer->setMachineState(lastState_);
    const auto readable = [](int, GIOCondition, gpointer self) -> gboolean {
        static_cast<State*>(self)->takeJournal();
        return G_SOURCE_CONTINUE;
    };
    journalId_ = g_unix_fd_add(room_.journal->fd(), G_IO_IN, readable, this);
}

// The ages of warm sources are asked for only while somebody looks.
void Api::State::setViewers(std::size_t viewers) {
    room_.pictures->setViewers(viewers);
    room_.observer->setWatched(viewers > 0);
    if (viewers > 0 && warmId_ == 0) {
        const auto tick = [](gpointer self) -> gboolean {
            static_cast<State*>(self)->askWarm();
            return G_SOURCE_CONTINUE;
        };
        askWarm();
        warmId_ = g_timeout_add(warmEveryMs, tick, this);
    } else if (viewers == 0 && warmId_ != 0) {
        g_source_remove(warmId_);
        warmId_ = 0;
    }
}

void Api::State::askWarm() {
    if (asksWarm_)
        return;
    const auto warm = std::make_shared<std::vector<streams::KeptReport>>();
    asksWarm_ = room_.readings.run(
        [warm] { *warm = streams::askKeeper().value_or(std::vector<streams::KeptReport>()); },
        [this, warm](const std::exception_ptr&) {
            asksWarm_ = false;
            room_.observer->setWarm(std::move(*warm));
        });
}

std::vector<Event> Api::State::first(const ListenerInfo& listener) const {
    room_.observer->refresh();
    std::vector<Event> events{
        {"session", jsonLine({{"user", listener.account}, {"role", roleName(listener.role)}})},
        {"status", jsonLine(room_.observer->statusNow())},
        {"sources", jsonLine(room_.observer->sourcesNow())},
        {"fleet", jsonLine(room_.fleet->now())}};
    if (const MadePicture picture = room_.pictures->picture(0); picture.number != 0)
        events.push_back({"picture", pictureEvent(picture)});
    return events;
}

void Api::State::begin(Router& router) {
    makeFleet();
    makeObserver();
    makePictures();
    followJournal();
    Routes routes(router, room_.metrics);
    addStateRoutes(routes, room_);
    addSourceRoutes(routes, room_);
    addControlRoutes(routes, room_);
    addFleetRoutes(routes, room_);
    addParameterRoutes(routes, room_);
    addPictureRoutes(routes, room_);
    addMetricsRoute(routes, room_);
    addDocumentRoute(routes);
    room_.streams.setFirst([this](const ListenerInfo& listener) { return first(listener); });
    room_.streams.onCount([this](std::size_t viewers) { setViewers(viewers); });
}

Api::Api(Router& router, EventStreams& streams) : state_(std::make_shared<State>(streams)) {
    state_->begin(router);
}

Api::~Api() = default;

void addDocumentRoute(Routes& routes) {
    routes.add("GET", "/api/v1/openapi.json", Role::None, [](const Request&, const Answer& answer) {
        answer(jsonResponse(std::string(openApiDocument())));
    });
}

} // namespace panel
