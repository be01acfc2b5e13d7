// The figures for Prometheus, as text. Main loop's thread only.
//
// Names begin with "skelmor_"; times are in seconds and sizes in bytes. docs/panel.md lists them.
#pragma once

#include "appliance/panel/state/switch_times.h"
#include "appliance/reporting/decoder_status.h"
#include "appliance/reporting/source_report.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panel {

// What is true at the moment of the question.
struct MetricsNow {
    const DecoderStatus& status;
    const std::vector<SourceReport>& sources;
    std::string decoder; // this machine's name
    std::size_t viewers = 0;
    std::uint64_t pictures = 0;
    double pictureSeconds = 0; // spent with making them
};

class Metrics {
public:
    Metrics();
    ~Metrics();

    void switched(const SwitchEvent& event, const std::string& source);
    void error(const std::string& code, const std::string& source);
    void request(const std::string& method, const std::string& route, int status);

    // In the text format, version 0.0.4. Sources that are no longer configured are left out.
    std::string text(const MetricsNow& now);
    static constexpr const char* type = "text/plain; version=0.0.4; charset=utf-8";

private:
    class Counters;
    std::unique_ptr<Counters> counters_;
};

} // namespace panel
