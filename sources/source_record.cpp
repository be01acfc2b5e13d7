#include "sources/source_record.h"

#include "recorder/recorded.h"

namespace {

constexpr int decoderParameters = 0; // parameter file

} // namespace

SubGroups readSources() {
    return recorded::getSubGroups(decoderParameters, "Encoder");
}

SourceParams readSource(int index) {
    const SubGroups sources = readSources();
    if (index < 0 || static_cast<std::size_t>(index) >= sources.size())
        return {};
    return sources[static_cast<std::size_t>(index)];
}

std::string sourceKey(SourceParams& params) {
    const std::string& type = params["VideoSourceType"];
    const std::string& number = params["VideoSourceNumber"];
    const std::string& address = params["Address"];
    return address + "#" + number + "#" + type;
}
