// The encoder's parameters as its CGIs give them.
#pragma once

#include "appliance/encoder/options.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The three ways to ask.
enum class ParameterCgi { View, Admin, AdminGet };

struct ParameterReply {
    int status; // 200 or 404
    std::string text;
};

class Parameters {
public:
    explicit Parameters(const Options& options);

    // The reply to a question for `group`: a parameter's name, or a group's ("Brand" for all that begin with
    // "Brand."), or "" for everything. A name may be asked for with "root." before it; the reply then has it,
    // too, so that a reply always begins with what was asked. What is unknown gives a line that begins with
    // "#". Devices of API version 1 have no viewer CGI, know old names only, and answer 404 for what is
    // unknown.
    ParameterReply ask(ParameterCgi cgi, std::string_view group) const;

private:
    std::vector<std::pair<std::string, std::string>> values_;
    bool old_;
};
