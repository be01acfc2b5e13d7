// Included before every source where a long has 32 bits and times have 64 (cmake/House.cmake).
//
// With _FORTIFY_SOURCE, <poll.h> of glibc 2.36 calls the ppoll that expects 32-bit times, whatever _TIME_BITS is: a wait
// of less than a second would then be none. Without it, the header chooses the right one.
#include <features.h>

#pragma push_macro("__USE_FORTIFY_LEVEL")
#undef __USE_FORTIFY_LEVEL
#define __USE_FORTIFY_LEVEL 0
#include <poll.h>
#pragma pop_macro("__USE_FORTIFY_LEVEL")
