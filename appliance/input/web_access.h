// How camera-input talks to a web server with libavformat: what a stream may open, the credentials, and the reasons in
// words. The request says which form the stream has.
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

    // "" or why the server's name has no address. Waits for the system's resolver.
    std::string whyNoAddress() const;
    // Why the stream can't be opened, from libavformat's error. `silent`: its time was over.
    // `answered`: the server had sent what the URL names.
    std::string reasonFor(int error, bool silent, bool answered) const;
    // Whether the error says that what the server sends has another form.
    static bool isOtherForm(int error);

private:
    bool isSecure() const { return request_.place.starts_with("https:"); }
    std::string reasonForStatus(int error) const;

    const Request request_;
    const WebForm form_;
};

} // namespace input
