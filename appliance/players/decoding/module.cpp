#include "appliance/players/decoding/module.h"

#include <libcommon/log.h>

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

namespace player {
namespace {

// Process-wide state of this file: GStreamer's plugin folders, separated by colons. Written once by prepareGStreamer(),
// before other threads exist; never destroyed, because threads run while the process exits.
std::string& pluginFolders() {
    static std::string& folders = *new std::string(GST_PLUGIN_FOLDER);
    return folders;
}

// The path of a file beside the running program.
std::string besideProgram(const char* file) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, length < 0 ? 0 : static_cast<std::size_t>(length));
    return program.substr(0, program.rfind('/') + 1) + file;
}

// Null with a log line when the module or its function is missing.
template<class Function>
Function* load(const char* file, const char* function) {
    void* module = dlopen(besideProgram(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    void* found = module == nullptr ? nullptr : dlsym(module, function);
    if (found == nullptr)
        logmsg(3, "A part of the player can't be loaded: %s", dlerror());
    return reinterpret_cast<Function*>(found);
}

} // namespace

void prepareGStreamer() {
    const char* own = std::getenv("GST_PLUGIN_SYSTEM_PATH_1_0");
    if (own != nullptr && *own != '\0')
        pluginFolders() = own;
    // An empty search path and a registry file that can't exist: gst_init() reads and writes nothing.
    setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
    setenv("GST_PLUGIN_PATH_1_0", "", 1);
    setenv("GST_REGISTRY_1_0", "/proc/self/no-registry/registry", 1);
    setenv("GST_REGISTRY_UPDATE", "no", 1);
}

GStreamerModule* loadGStreamer() {
    static GStreamerModule* const module = [] {
        auto* start = load<StartGStreamer>("player-gstreamer.so", startGStreamerName);
        return start == nullptr ? nullptr : start(pluginFolders().c_str());
    }();
    return module;
}

std::unique_ptr<UnitDecoder> makeUnitDecoder() {
    static MakeUnitDecoder* const make = load<MakeUnitDecoder>("player-libav.so", makeUnitDecoderName);
    return std::unique_ptr<UnitDecoder>(make == nullptr ? nullptr : make());
}

} // namespace player
