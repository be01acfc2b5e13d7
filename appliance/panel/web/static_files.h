// The files of the page, which are part of the program.
#pragma once

#include "appliance/panel/web/router.h"

#include <span>
#include <string_view>

namespace panel {

struct StaticFile {
    std::string_view name;    // "panel.js"; "index.html" is served at /, the others at /assets/NAME
    std::string_view type;    // "text/javascript; charset=utf-8"
    std::string_view content; // lasts as long as the program
    std::string_view hash;    // of the content, hexadecimal: the ETag
};

// Made at build time from the files of appliance/panel/page/.
std::span<const StaticFile> pageFiles();

// Adds a route for each file. Browsers keep the files and ask with the ETag whether they are still right.
void addStaticFiles(Router& router, std::span<const StaticFile> files);

} // namespace panel
