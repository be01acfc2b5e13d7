#include "appliance/panel/state/observer.h"

#include "appliance/reporting/error_words.h"
#include "appliance/reporting/json_text.h"

#include <libcommon/clock.h>
#include <libcommon/display.h>
#include <libcommon/events.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <glib-unix.h>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

// A change of the source writes several files within a few milliseconds.
constexpr unsigned togetherMs = 20;
constexpr unsigned watchedTickMs = 1000;
constexpr unsigned idleTickMs = 2000;
constexpr std::int64_t freshUs = 50'000;

// What changes without a file.
bool looksDifferent(const DecoderStatus& status) {
    if (libcommon::eventQueueOwner() != status.supervisorPid)
        return true;
    for (int line = 0; line < libcommon::osdLines; ++line) {
        if (libcommon::osdText(line) != status.osd[static_cast<std::size_t>(line)])
            return true;
    }
    const std::optional<::Picture> picture = readPicture();
    return picture.has_value() != status.picture.has_value() ||
           (picture &&
            (picture->source != status.picture->source || picture->blanked != status.picture->blanked));
}

} // namespace

std::string wallTime(std::int64_t moment) {
    using namespace std::chrono;
    const auto time = system_clock::now() - microseconds(gettimeusec() - moment);
    const std::time_t seconds = system_clock::to_time_t(time);
    const auto ms = duration_cast<milliseconds>(time.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char date[32];
    char offset[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(offset, sizeof offset, "%z", &local); // "+0100"
    char text[64];
    std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", date, static_cast<int>(ms), offset, offset + 3);
    return text;
}

Observer::Observer(ObserverNews news, FindStill still) : news_(std::move(news)), still_(std::move(still)) {
    // The records from before are of no interest; they only say since when the source shows.
    times_.add(store_.infosSince(0));
    if (watch_.fd() >= 0) {
        const auto readable = [](int, GIOCondition, gpointer self) -> gboolean {
            auto* observer = static_cast<Observer*>(self);
            const Touched touched = observer->watch_.read();
            if (touched.any())
                observer->lookSoon();
            if (touched.configuration && observer->news_.configured)
                observer->news_.configured();
            return G_SOURCE_CONTINUE;
        };
        watchId_ = g_unix_fd_add(watch_.fd(), G_IO_IN, readable, this);
    }
    look();
    armTick();
}

Observer::~Observer() {
    for (const unsigned id : {watchId_, soonId_, tickId_}) {
        if (id != 0)
            g_source_remove(id);
    }
}

// Looks at the files a moment later.
void Observer::lookSoon() {
    if (soonId_ != 0)
        return;
    soonId_ = g_timeout_add(
        togetherMs,
        [](gpointer self) -> gboolean {
            auto* observer = static_cast<Observer*>(self);
            observer->soonId_ = 0;
            observer->look();
            return G_SOURCE_REMOVE;
        },
        this);
}

void Observer::armTick() {
    if (tickId_ != 0)
        g_source_remove(tickId_);
    tickId_ = g_timeout_add(
        watched_ ? watchedTickMs : idleTickMs,
        [](gpointer self) -> gboolean {
            auto* observer = static_cast<Observer*>(self);
            observer->watch_.renew();
            observer->lookAtPictures();
            if (looksDifferent(observer->status_))
                observer->look();
            return G_SOURCE_CONTINUE;
        },
        this);
}

void Observer::setWatched(bool watched) {
    if (watched == watched_)
        return;
    watched_ = watched;
    armTick();
}

void Observer::selected(int source) {
    times_.selected(source, gettimeusec());
}

void Observer::setWarm(std::vector<streams::KeptReport> reports) {
    warm_ = std::move(reports);
    addWarm();
    lookAtSources();
}

void Observer::setMachineState(std::string state) {
    if (state == machineState_)
        return;
    machineState_ = std::move(state);
    lookSoon();
}

void Observer::addWarm() {
    for (SourceReport& source : sources_)
        source.warm.reset();
    for (const streams::KeptReport& report : warm_) {
        for (const int index : report.sources) {
            if (index >= 0 && static_cast<std::size_t>(index) < sources_.size())
                sources_[static_cast<std::size_t>(index)].warm = report;
        }
    }
}

void Observer::readFiles() {
    status_ = readDecoderStatus();
    inForce_ = readInForce();
    sources_ = readSourceReports(inForce_);
    addWarm();
}

std::string Observer::nameOfShown(int source) const {
    const auto index = static_cast<std::size_t>(source);
    if (source < 0)
        return "";
    if (inForce_.known && index < inForce_.sources.size()) {
        const auto name = inForce_.sources[index].find("Name");
        return name == inForce_.sources[index].end() ? "" : name->second;
    }
    return index < sources_.size() ? sources_[index].name : "";
}

void Observer::lookAtPictures() {
    for (const SwitchEvent& event : times_.add(store_.infosSince(times_.seen()))) {
        if (!first_)
            news_.switched(event, nameOfShown(event.source));
    }
    if (watched_ && status_.picture && rate_.add(times_.seen(), gettimeusec()))
        news_.change(changeJsonLine(rateChange(rate_.value()), isoTime()));
}

void Observer::tellChanges(const DecoderStatus& before) {
    for (const Change& change : changesBetween(before, status_))
        news_.change(changeJsonLine(change, isoTime()));
    if (before.currentSource != status_.currentSource || before.connected != status_.connected)
        news_.sourceChanged();
}

// A source has a new error when its code is another one than before.
void Observer::tellErrors() {
    std::vector<std::pair<std::string, std::string>> now;
    for (const SourceReport& source : sources_) {
        const std::string code = statusValue(source, "ErrorCode");
        if (!isError(code))
            continue;
        now.emplace_back(source.name, code);
        if (!first_ && std::ranges::find(errors_, now.back()) == errors_.end())
            news_.error(code, source.name);
    }
    errors_ = std::move(now);
}

void Observer::refresh() {
    if (gettimeusec() - lookedAt_ >= freshUs)
        look();
}

void Observer::look() {
    lookedAt_ = gettimeusec();
    const DecoderStatus before = status_;
    readFiles();
    lookAtPictures();
    tellErrors();
    if (!first_)
        tellChanges(before);
    first_ = false;
    nlohmann::json status = statusNow();
    const std::string comparable = jsonLine(comparableStatus(status));
    if (comparable != shownStatus_) {
        shownStatus_ = comparable;
        news_.status(jsonLine(status));
    }
    lookAtSources();
}

void Observer::lookAtSources() {
    nlohmann::json sources = sourcesNow();
    const std::string comparable = jsonLine(comparableSources(sources["sources"]));
    if (comparable == shownSources_)
        return;
    shownSources_ = comparable;
    news_.sources(jsonLine(sources));
}

StatusContext Observer::context() {
    if (times_.shownSince() != shownSince_) {
        shownSince_ = times_.shownSince();
        shownSinceText_ = wallTime(shownSince_);
    }
    StatusContext context;
    context.decoder = decoderName();
    context.machineState = machineState_;
    context.now = gettimeusec();
    context.shownSince = shownSince_;
    context.shownSinceText = shownSinceText_;
    context.shownSource = times_.source();
    context.sound = sound::settings();
    const auto index = static_cast<std::size_t>(std::max(status_.currentSource, 0));
    std::string text;
    if (status_.currentSource < 0)
        return context;
    if (inForce_.known && index < inForce_.sources.size()) {
        const auto found = inForce_.sources[index].find("DisplayTime");
        text = found == inForce_.sources[index].end() ? "" : found->second;
    } else if (index < sources_.size()) {
        text = configuredValue(sources_[index], "DisplayTime");
    }
    int seconds = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), seconds).ec == std::errc())
        context.displayTime = seconds;
    return context;
}

nlohmann::json Observer::statusNow() {
    return statusObject(status_, context());
}

nlohmann::json Observer::sourcesNow() {
    return {{"sources", sourceObjects(sources_, status_.currentSource, still_)}};
}

} // namespace panel
