#include "sources/source_record.h"

#include <utility>

namespace {

constexpr int decoderParameters = 0; // parameter file

} // namespace

std::vector<SourceParams> readSources() {
    return getSubGroups(decoderParameters, "Encoder");
}

SourceParams readSource(int index) {
    std::vector<SourceParams> sources = readSources();
    if (index < 0 || static_cast<std::size_t>(index) >= sources.size())
        return {};
    return std::move(sources[static_cast<std::size_t>(index)]);
}

std::string sourceKey(SourceParams& params) {
    const std::string& type = params["VideoSourceType"];
    const std::string& number = params["VideoSourceNumber"];
    const std::string& address = params["Address"];
    return address + "#" + number + "#" + type;
}
