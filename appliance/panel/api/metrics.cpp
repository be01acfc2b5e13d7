#include "appliance/panel/api/metrics.h"

#include "appliance/panel/api/machine_figures.h"
#include "appliance/panel/state/decoder_json.h"
#include "appliance/reporting/error_words.h"

#include <libcommon/text.h>

#include <algorithm>
#include <map>
#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>
#include <set>
#include <unistd.h>
#include <utility>

namespace panel {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

const prometheus::Histogram::BucketBoundaries answerBounds{0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 30};
const prometheus::Histogram::BucketBoundaries gapBounds{0.02, 0.04, 0.08, 0.15, 0.3, 0.6, 1.5, 5, 15};

using Labels = std::vector<ClientMetric::Label>;

// Values of the moment, as families of the client library.
class Moment {
public:
    void gauge(const char* name, const char* help, double value, Labels labels = {}) {
        ClientMetric metric;
        metric.label = std::move(labels);
        metric.gauge.value = value;
        family(name, help, MetricType::Gauge).metric.push_back(std::move(metric));
    }
    void counter(const char* name, const char* help, double value) {
        ClientMetric metric;
        metric.counter.value = value;
        family(name, help, MetricType::Counter).metric.push_back(std::move(metric));
    }
    std::vector<MetricFamily> take() { return std::move(families_); }

private:
    MetricFamily& family(const char* name, const char* help, MetricType type) {
        const auto found = std::ranges::find(families_, name, &MetricFamily::name);
        if (found != families_.end())
            return *found;
        families_.push_back({name, help, type, {}});
        return families_.back();
    }

    std::vector<MetricFamily> families_;
};

Labels ofSource(const std::string& name) {
    return {{"source", libcommon::printable(name)}};
}

void addDecoder(Moment& moment, const MetricsNow& now) {
    moment.gauge("skelmor_info", "The version and the mode in force; the value is 1.", 1,
                 {{"decoder", libcommon::printable(now.decoder)},
                  {"mode", libcommon::printable(now.status.mode)},
                  {"version", HOUSE_VERSION}});
    moment.gauge("skelmor_up", "Whether the supervisor runs.", now.status.supervisorPid >= 0 ? 1 : 0);
    moment.gauge("skelmor_connected", "Whether the decoder plays.", now.status.connected ? 1 : 0);
    moment.counter("skelmor_frames_total", "Frames that players have drawn.",
                   now.status.picture ? static_cast<double>(now.status.picture->number) : 0);
    if (const auto queue = eventQueueFigures()) {
        moment.gauge("skelmor_event_queue_messages", "Events that wait for the supervisor.", queue->messages);
        moment.gauge("skelmor_event_queue_bytes", "Bytes that these events take.", queue->bytes);
        moment.gauge("skelmor_event_queue_limit_bytes", "Bytes that the queue holds.", queue->mostBytes);
    }
    if (const auto supervisor = processFigures(now.status.supervisorPid)) {
        moment.gauge("skelmor_supervisor_resident_memory_bytes",
                     "Memory of the supervisor, shared parts included.", supervisor->residentBytes);
        if (supervisor->privateBytes)
            moment.gauge("skelmor_supervisor_private_memory_bytes", "Memory that only the supervisor has.",
                         *supervisor->privateBytes);
        moment.counter("skelmor_supervisor_cpu_seconds_total", "Processor time of the supervisor.",
                       supervisor->cpuSeconds);
    }
}

void addSource(Moment& moment, const SourceReport& source, int current) {
    const Labels labels = ofSource(source.name);
    const bool failed = isError(statusValue(source, "ErrorCode"));
    if (failed || !statusValue(source, "VideoSourceType").empty())
        moment.gauge("skelmor_source_up", "Whether the source was reached when it was last needed.",
                     failed ? 0 : 1, labels);
    moment.gauge("skelmor_source_shown", "Whether the source is on the screen.",
                 source.index == current ? 1 : 0, labels);
    if (!source.warm)
        return;
    moment.gauge("skelmor_source_warm", "Whether the source is kept warm.", source.warm->kept ? 1 : 0,
                 labels);
    if (source.warm->keyAgeMs >= 0)
        moment.gauge("skelmor_source_warm_key_picture_age_seconds", "Age of the kept key picture.",
                     static_cast<double>(source.warm->keyAgeMs) / 1e3, labels);
    moment.gauge("skelmor_source_warm_bytes", "Memory for what is kept of the source.",
                 static_cast<double>(source.warm->bytes), labels);
}

void addSources(Moment& moment, const MetricsNow& now) {
    std::set<std::string> names; // two sources may have one name; Prometheus refuses a value that comes twice
    for (const SourceReport& source : now.sources) {
        if (names.insert(libcommon::printable(source.name)).second)
            addSource(moment, source, now.status.currentSource);
    }
}

void addPanel(Moment& moment, const MetricsNow& now) {
    moment.gauge("skelmor_panel_viewers", "Pages and programs that follow the events.",
                 static_cast<double>(now.viewers));
    moment.counter("skelmor_panel_pictures_total", "Pictures of the screen that were made for viewers.",
                   static_cast<double>(now.pictures));
    moment.counter("skelmor_panel_picture_seconds_total", "Time that was spent with making them.",
                   now.pictureSeconds);
    if (const auto own = processFigures(getpid())) {
        moment.gauge("skelmor_panel_resident_memory_bytes", "Memory of the panel.", own->residentBytes);
        moment.counter("skelmor_panel_cpu_seconds_total", "Processor time of the panel.", own->cpuSeconds);
    }
}

} // namespace

class Metrics::Counters {
public:
    // Makes the counters of a source, so that they are there with 0 before the first event.
    void ensure(const std::string& source) {
        const prometheus::Labels labels{{"source", libcommon::printable(source)}};
        starts.Add(labels);
        restarts.Add(labels);
        stalls.Add(labels);
        answers.Add(labels, answerBounds);
        gaps.Add(labels, gapBounds);
    }

    prometheus::Registry registry;
    prometheus::Family<prometheus::Counter>& starts = prometheus::BuildCounter()
                                                          .Name("skelmor_source_player_starts_total")
                                                          .Help("Times that the source came to the screen.")
                                                          .Register(registry);
    prometheus::Family<prometheus::Counter>& restarts =
        prometheus::BuildCounter()
            .Name("skelmor_source_player_restarts_total")
            .Help("Times that another player went on with the source that showed.")
            .Register(registry);
    prometheus::Family<prometheus::Counter>& stalls =
        prometheus::BuildCounter()
            .Name("skelmor_source_stalls_total")
            .Help("Pauses of more than two seconds while the source showed.")
            .Register(registry);
    prometheus::Family<prometheus::Counter>& errors = prometheus::BuildCounter()
                                                          .Name("skelmor_source_errors_total")
                                                          .Help("Errors of the source, by code.")
                                                          .Register(registry);
    prometheus::Family<prometheus::Histogram>& answers =
        prometheus::BuildHistogram()
            .Name("skelmor_source_answer_seconds")
            .Help("From a selection through the panel to the source's first picture.")
            .Register(registry);
    prometheus::Family<prometheus::Histogram>& gaps =
        prometheus::BuildHistogram()
            .Name("skelmor_source_gap_seconds")
            .Help("Between the last picture of the source before and the first one of this source.")
            .Register(registry);
    prometheus::Family<prometheus::Counter>& requests = prometheus::BuildCounter()
                                                            .Name("skelmor_panel_requests_total")
                                                            .Help("Requests to the API that were answered.")
                                                            .Register(registry);
};

Metrics::Metrics() : counters_(std::make_unique<Counters>()) {}
Metrics::~Metrics() = default;

void Metrics::switched(const SwitchEvent& event, const std::string& source) {
    if (source.empty())
        return;
    const prometheus::Labels labels{{"source", libcommon::printable(source)}};
    switch (event.kind) {
    case SwitchEvent::Kind::Answered:
        return counters_->answers.Add(labels, answerBounds).Observe(event.seconds);
    case SwitchEvent::Kind::Gap:
        return counters_->gaps.Add(labels, gapBounds).Observe(event.seconds);
    case SwitchEvent::Kind::Start:
        return counters_->starts.Add(labels).Increment();
    case SwitchEvent::Kind::Restart:
        return counters_->restarts.Add(labels).Increment();
    case SwitchEvent::Kind::Stall:
        return counters_->stalls.Add(labels).Increment();
    }
}

void Metrics::error(const std::string& code, const std::string& source) {
    counters_->errors.Add({{"source", libcommon::printable(source)}, {"code", libcommon::printable(code)}})
        .Increment();
}

void Metrics::request(const std::string& method, const std::string& route, int status) {
    counters_->requests.Add({{"method", method}, {"route", route}, {"code", std::to_string(status)}})
        .Increment();
}

std::string Metrics::text(const MetricsNow& now) {
    Moment moment;
    addDecoder(moment, now);
    addSources(moment, now);
    addPanel(moment, now);
    std::vector<MetricFamily> families = moment.take();
    std::set<std::string> names;
    for (const SourceReport& source : now.sources) {
        counters_->ensure(source.name);
        names.insert(libcommon::printable(source.name));
    }
    for (MetricFamily& family : counters_->registry.Collect()) {
        std::erase_if(family.metric, [&](const ClientMetric& metric) {
            const auto source = std::ranges::find(metric.label, "source", &ClientMetric::Label::name);
            return source != metric.label.end() && !names.contains(source->value);
        });
        if (!family.metric.empty())
            families.push_back(std::move(family));
    }
    return prometheus::TextSerializer().Serialize(families);
}

} // namespace panel
