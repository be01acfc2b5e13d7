// Links that log in once: for whoever may already control this decoder at its console.
//
// The link's secret is in no file. A file named after its hash says that it may be used; using it removes the file. Any
// thread.
#pragma once

#include <string>

namespace panel {

inline constexpr int linkMinutes = 10;

// A new link to the panel that runs, "http://127.0.0.1:8088/open/SECRET". Throws Refused if no panel runs or its folder
// is not accessible.
std::string makeOneTimeLink();

// Uses up the link. True once within `linkMinutes`.
bool useOneTimeLink(const std::string& secret);

// Removes the links that are too old.
void removeOldLinks();

} // namespace panel
