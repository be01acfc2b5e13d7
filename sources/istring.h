// Parameter names are case-insensitive strings; the type belongs to the library that returns them in its
// maps.
#pragma once

#include <libcommon/istring.h>
