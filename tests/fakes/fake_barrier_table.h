// A barrier table for unit tests, linked in place of barrier_table: nothing in it exists, every call is
// recorded in fake::calls as createBarrier(117)  removeBarrier(117)  dropBarrier(117)  removeStaleBarriers().
// Results are 0. The players are those in fake::players.
#pragma once

#include "barrier/barrier_table.h"
#include "tests/fakes/fake_libcommon.h"

#include <set>

namespace fake {

extern std::set<int> players; // the test clears it

} // namespace fake
