#include "sources/source_list.h"

#include "process/process_state.h"
#include "recorder/recorded.h"
#include "sources/source_record.h"

#include <libcommon/log.h>

namespace {

constexpr std::int64_t microsecondsPerSecond = 1000000;

void readMode(const recorded::Parameters& parameters) {
    const std::string text = parameters["Decoder.SequenceMode"].toString();
    if (text == "auto")
        setMode(MODE_AUTO);
    else if (text == "manual")
        setMode(MODE_MANUAL);
    else
        logmsg(2, "Illegal mode '%s' in Decoder.SequenceMode!", text.c_str());
}

// On a copy, because the look-ups insert missing keys.
bool isEnabled(SourceParams params, int mode) {
    const char* key = mode == MODE_AUTO ? "AutoEnabled" : "ManualEnabled";
    return params[key] == "yes" && !params["Address"].empty();
}

} // namespace

SourceList buildSourceList() {
    const recorded::Parameters parameters(0, true);
    readMode(parameters);

    SourceList list;
    list.configured = readSources();
    const int count = static_cast<int>(list.configured.size());
    logmsg(7, "Found %d sources", count);
    list.autoDetectTimeout = parameters["Decoder.AutoDetectTimeout"].toInt() * microsecondsPerSecond;
    for (int index = 0; index < count; ++index)
        if (isEnabled(list.configured[static_cast<std::size_t>(index)], getMode()))
            list.enabled.push_back(index);
    return list;
}
