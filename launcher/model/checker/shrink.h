// Makes a failing list of steps as short as it can be.
#pragma once

#include "launcher/model/checker/step.h"

#include <functional>

namespace checker {

// Delta debugging: drops ever smaller pieces of the list while it still fails. No single step of the result
// can be left out. `fails` must be true for `steps`.
Steps shrink(Steps steps, const std::function<bool(const Steps&)>& fails);

} // namespace checker
