#include "appliance/panel/web/source_handle.h"

namespace panel {
namespace {

using Action = std::function<void()>;

gboolean call(gpointer action) {
    (*static_cast<Action*>(action))();
    return G_SOURCE_CONTINUE;
}

void destroy(gpointer action) {
    delete static_cast<Action*>(action);
}

} // namespace

SourceHandle every(unsigned milliseconds, std::function<void()> action) {
    GSource* source = milliseconds % 1000 == 0 ? g_timeout_source_new_seconds(milliseconds / 1000)
                                               : g_timeout_source_new(milliseconds);
    g_source_set_callback(source, call, new Action(std::move(action)), destroy);
    g_source_attach(source, g_main_context_get_thread_default());
    return SourceHandle(source);
}

} // namespace panel
