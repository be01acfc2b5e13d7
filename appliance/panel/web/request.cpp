#include "appliance/panel/web/request.h"

#include <libcommon/text.h>

#include <nlohmann/json.hpp>

namespace panel {

std::string_view roleName(Role role) {
    switch (role) {
    case Role::None:
        return "none";
    case Role::Viewer:
        return "viewer";
    case Role::Operator:
        return "operator";
    case Role::Admin:
        return "admin";
    }
    return "none";
}

Response errorResponse(int status, std::string_view sentence) {
    return jsonResponse(nlohmann::json{{"error", libcommon::printable(sentence)}}.dump(), status);
}

Response jsonResponse(std::string json, int status) {
    Response response;
    response.status = status;
    response.body = std::move(json);
    return response;
}

} // namespace panel
