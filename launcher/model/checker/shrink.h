// Shortens a failing list of steps.
#pragma once

#include "launcher/model/checker/step.h"

#include <functional>

namespace checker {

// Delta debugging: removes smaller and smaller pieces of the list as long as it still fails. The result fails and
// none of its steps can be removed. `fails` must be true for `steps`.
Steps shrink(Steps steps, const std::function<bool(const Steps&)>& fails);

} // namespace checker
