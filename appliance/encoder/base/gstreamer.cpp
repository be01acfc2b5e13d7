#include "appliance/encoder/base/gstreamer.h"

#include "appliance/encoder/base/log.h"

#include <gst/gst.h>

void startGStreamer() {
    static const bool started = gst_init_check(nullptr, nullptr, nullptr) != FALSE;
    if (!started)
        logLine("GStreamer cannot be started");
}

std::string missingElement(std::initializer_list<const char*> names) {
    startGStreamer();
    for (const char* name : names) {
        GstElementFactory* factory = gst_element_factory_find(name);
        if (factory == nullptr)
            return std::string("GStreamer has no ") + name + " on this machine";
        gst_object_unref(factory);
    }
    return {};
}
