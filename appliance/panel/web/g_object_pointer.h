// Owning pointers to GLib's objects.
#pragma once

#include <glib-object.h>
#include <memory>

namespace panel {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

// Owns one reference.
template<class Object>
using GObjectPointer = std::unique_ptr<Object, GObjectUnref>;

struct GErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using GErrorPointer = std::unique_ptr<GError, GErrorFree>;

// One more reference to an object.
template<class Object>
GObjectPointer<Object> shared(Object* object) {
    return GObjectPointer<Object>(static_cast<Object*>(g_object_ref(object)));
}

} // namespace panel
