// Keeps user names and passwords out of the recorder's file.
#pragma once

#include <libcommon/params.h>

#include <string>
#include <string_view>

namespace recorder {

// In place of a user name or a password that is set, and of a secret in a text.
inline constexpr std::string_view hidden = "***";

// What the recorder keeps of a source: only the parameters that the supervisor reads; of user name and password only
// whether they are set. Remembers the passwords of the source, its URLs included, for withoutSecrets(). Any thread.
SourceParams recordable(const SourceParams& source);

// The text with `hidden` in place of each password that was remembered, also as Basic credentials; a password of one to
// three characters only where it is a whole word. Any thread.
std::string withoutSecrets(std::string_view text);

// An address or a URL without the user before its "@".
std::string withoutUser(std::string_view address);

} // namespace recorder
