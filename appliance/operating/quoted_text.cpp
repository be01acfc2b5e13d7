#include "appliance/operating/quoted_text.h"

#include <libcommon/text.h>

std::string inQuotes(std::string_view text) {
    return '"' + libcommon::printable(text) + '"';
}
