#include "appliance/players/decoding/gst_start.h"

#include <libcommon/log.h>

#include <gst/gst.h>
#include <string>
#include <sys/stat.h>

namespace player {
namespace {

// Process-wide state of this file: the plugin folders, separated by colons. Written once by startGStreamer(); never
// destroyed, because decoding threads run while the process exits.
std::string& pluginFolders() {
    static std::string& folders = *new std::string;
    return folders;
}

std::string fileOf(const std::string& plugin) {
    const std::string& folders = pluginFolders();
    for (std::size_t start = 0; start <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', start), folders.size());
        std::string path = folders.substr(start, end - start) + "/libgst" + plugin + ".so";
        struct stat info {};
        if (stat(path.c_str(), &info) == 0)
            return path;
        start = end + 1;
    }
    return "";
}

} // namespace

bool startGStreamer(const std::string& folders, std::initializer_list<const char*> plugins) {
    pluginFolders() = folders;
    gst_registry_fork_set_enabled(FALSE);
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error) == FALSE) {
        logmsg(3, "GStreamer does not start: %s", error->message);
        g_error_free(error);
        return false;
    }
    return loadPlugins(plugins);
}

bool loadPlugins(std::initializer_list<const char*> plugins) {
    for (const char* plugin : plugins) {
        const std::string path = fileOf(plugin);
        if (path.empty()) {
            logmsg(3, "GStreamer's plugin \"%s\" is not installed (looked in %s)", plugin,
                   pluginFolders().c_str());
            return false;
        }
        GError* error = nullptr;
        GstPlugin* loaded = gst_plugin_load_file(path.c_str(), &error);
        if (loaded == nullptr) {
            logmsg(3, "GStreamer's plugin %s can't be used: %s", path.c_str(), error->message);
            g_error_free(error);
            return false;
        }
        gst_object_unref(loaded);
    }
    return true;
}

void loadWhereInstalled(std::initializer_list<const char*> plugins) {
    for (const char* plugin : plugins)
        if (!fileOf(plugin).empty())
            loadPlugins({plugin});
}

} // namespace player
