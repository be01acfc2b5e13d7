// Texts of URLs: percent encoding, paths, queries and forms.
#pragma once

#include "appliance/panel/web/request.h"

#include <optional>
#include <string>
#include <string_view>

namespace panel {

// The text of a percent-encoded part. Nothing if an escape is wrong, or if the result is not UTF-8 or has a control
// character. `plusIsBlank` for queries and forms.
std::optional<std::string> decoded(std::string_view encoded, bool plusIsBlank = false);

// The names and values of a query or form: of a name that comes twice the first value. Nothing if one of them can't be
// decoded, or if there are more than 64.
std::optional<Texts> decodedFields(std::string_view encoded);

} // namespace panel
