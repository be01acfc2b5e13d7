// How camera-input talks to a web server with libavformat: what a stream may open, the credentials, and the reasons in
// words. What a server sends decides nothing here: the URL's ending does.
#pragma once

#include "appliance/input/protocol/messages.h"
#include "appliance/input/protocol/web_source.h"

#include <map>
#include <string>

namespace input {

class WebAccess {
public:
    explicit WebAccess(const Request& request);

    WebForm form() const { return form_; }
    std::string url() const;       // with the credentials; only for libavformat
    const char* protocols() const; // that the stream may use: never files
    const char* formats() const;   // that the answer, and what it refers to, may have
    std::string place() const;     // "host:port"
    std::map<std::string, std::string> openOptions() const;       // of the stream
    std::map<std::string, std::string> connectionOptions() const; // of each connection that it opens

    // Why the stream can't be opened, from libavformat's error. `silent`: its time was over.
    // `answered`: the server had sent what the URL names.
    std::string reasonFor(int error, bool silent, bool answered) const;

private:
    bool isSecure() const { return request_.place.starts_with("https:"); }
    std::string reasonForStatus(int error) const;

    const Request request_;
    const WebForm form_;
};

} // namespace input
