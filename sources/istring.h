// The case-insensitive string type of parameter names. libcommon defines it, because its maps have it as their key.
#pragma once

#include <libcommon/istring.h>
