// Starts GStreamer with exactly the plugins that a player needs.
//
// gst_init() normally reads a registry of all installed plugins. When its cache is missing or old, it opens every
// plugin, which takes seconds, and writes the cache into the user's home. Loading named plugins takes a millisecond or
// two and needs no cache.
#pragma once

#include <initializer_list>
#include <string>

namespace player {

// Starts GStreamer with these plugins ("jpeg" is libgstjpeg.so) from these folders, which are separated by colons. The
// environment is that of prepareGStreamer(). False with a log line when a plugin is missing. Called once.
bool startGStreamer(const std::string& folders, std::initializer_list<const char*> plugins);

// Loads more plugins after startGStreamer(). False with a log line when one is missing. Any thread.
bool loadPlugins(std::initializer_list<const char*> plugins);

// Loads those of these plugins that are installed. Any thread.
void loadWhereInstalled(std::initializer_list<const char*> plugins);

} // namespace player
