// Links that log in: each works once. Only root and the decoder's user can make one, because they control this decoder
// already.
//
// The secret of a link is in no file. Each link that was not used yet has a file, whose name is the hash of the secret.
// Using the link removes the file. Any thread.
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
