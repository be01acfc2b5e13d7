// Asking camera-gateway what a camera is.
#pragma once

#include <map>
#include <string>

// What the gateway's program found out, Key to value: "URL", "UserName", "Password" (as they are to be written), "Video"
// (a sentence for people), "VideoSourceType" (of a web server, with
// `connect`). Throws Refused with the reason when the camera can't be played.
//
// The program gets the URL and the credentials through a pipe, so that no command line has them. With `connect` false it
// only reads the URL. At most 30 seconds.
std::map<std::string, std::string> probeCamera(const std::string& url, const std::string& user,
                                               const std::string& password, bool connect);
