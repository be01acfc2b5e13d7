// The folders of the status store, and the lock that its writers share.
#pragma once

#include "libcommon/src/files.h"

#include <libcommon/params.h>

#include <string>

namespace local {

// /run/decoder/source below the appliance root, with a slash at the end.
const std::string& statusStore();

// The store's lock: every process that changes the store holds it.
std::string statusLockPath();

// The folder of one source's values, with a slash at the end.
std::string statusFolder(int index);

// A hidden file in that folder: which source its values are about, as "Address#VideoSourceNumber#VideoSourceType".
std::string statusOwnerPath(int index);

// The source that is configured under the index now; "" when there is none.
std::string configuredSource(const SubGroups& sources, std::size_t index);

} // namespace local
