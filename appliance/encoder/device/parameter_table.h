// The encoder's parameters, and the replies of the three CGIs that report them.
#pragma once

#include "appliance/encoder/device/encoder_options.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The viewer's param.cgi, the administrator's param.cgi, and the administrator's old getparam.cgi.
enum class ParameterCgi { View, Admin, AdminGet };

struct ParameterReply {
    int status; // 200 or 404
    std::string text;
};

class Parameters {
public:
    explicit Parameters(const Options& options);

    // The reply to a query for `group`: a parameter's name, a group ("Brand" for all names that begin with "Brand."),
    // or "" for all. The name may have "root." in front; then the reply has it too, because a reply always begins
    // with the name that was asked for. An unknown name gives a line that begins with "#". Devices of API version 1
    // have no viewer CGI and know old names only; an unknown name gives 404 there.
    ParameterReply ask(ParameterCgi cgi, std::string_view group) const;

private:
    std::vector<std::pair<std::string, std::string>> values_;
    bool old_;
};
