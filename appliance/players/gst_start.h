// Starting GStreamer with exactly the plugins that a player needs.
//
// The ordinary start reads a registry of all installed plugins and, where its cache is missing or old, looks
// into each of them, which takes up to seconds and writes into the user's home; a picture would wait for it.
// Naming the plugins takes a millisecond or two and depends on no cache.
#pragma once

#include <initializer_list>

namespace player {

// Starts GStreamer with these plugins ("jpeg" is libgstjpeg.so). False with a log line that names what is
// missing. Call once, before there are other threads.
bool startGStreamer(std::initializer_list<const char*> plugins);

// Loads more of them. Any thread, after startGStreamer().
bool loadPlugins(std::initializer_list<const char*> plugins);

// Loads those of them that are installed.
void loadWhereInstalled(std::initializer_list<const char*> plugins);

} // namespace player
