#include "appliance/mqtt/source_choice.h"

#include "appliance/reporting/source_names.h"

#include <libcommon/params.h>

#include <vector>

namespace mqtt {

ChosenSource chooseSource(const std::string& wanted) {
    std::vector<std::string> names;
    for (SourceParams source : getSubGroups(0, "Encoder")) {
        names.push_back(source["Name"]);
    }
    const int index = resolveSource(wanted, names);
    return {index, names[static_cast<std::size_t>(index)]};
}

} // namespace mqtt
