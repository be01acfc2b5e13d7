// A source of the main loop that ends with its owner.
#pragma once

#include <functional>
#include <glib.h>
#include <memory>
#include <utility>

namespace panel {

struct SourceDestroy {
    void operator()(GSource* source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};

// Owns the source: it never fires after the handle was reset.
using SourceHandle = std::unique_ptr<GSource, SourceDestroy>;

// Calls `action` again and again, that many milliseconds apart, while the handle exists.
SourceHandle every(unsigned milliseconds, std::function<void()> action);

} // namespace panel
