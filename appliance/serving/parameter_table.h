// The parameters that an encoder reports, and the replies of the three CGIs that report them. No sockets.
#pragma once

#include "appliance/serving/request_text.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What an encoder says about itself.
struct DeviceFacts {
    std::string model;
    int apiVersion = 2;       // 1 is an old device without a viewer CGI
    int rotation = 0;         // of the pictures: 0, 90, 180 or 270
    std::size_t inputs = 1;   // number of video inputs
    std::string imageFormats; // "jpeg,mjpeg,mpeg4"; decoders take "mpeg4" to mean RTSP, whatever the codec
};

// The viewer's param.cgi, the administrator's param.cgi, and the administrator's old getparam.cgi.
enum class ParameterCgi { View, Admin, AdminGet };

inline constexpr std::string_view viewParameterPath = "/vexo-cgi/view/param.cgi";

struct ParameterReply {
    int status; // 200, 400 or 404
    std::string text;
};

class Parameters {
public:
    explicit Parameters(const DeviceFacts& facts);

    // The reply to a query for `group`: a parameter's name, a group ("Brand" for all names that begin with "Brand."),
    // or "" for all. The name may have "root." in front; then the reply has it too, because a reply always begins
    // with the name that was asked for. An unknown name gives a line that begins with "#". Devices of API version 1
    // have no viewer CGI and know old names only; an unknown name gives 404 there.
    ParameterReply ask(ParameterCgi cgi, std::string_view group) const;

    // The reply to a request for one of the three CGIs; nothing for every other request.
    std::optional<ParameterReply> replyTo(const Request& request) const;

private:
    ParameterReply list(ParameterCgi cgi, std::string_view query) const;

    std::vector<std::pair<std::string, std::string>> values_;
    bool old_;
};
