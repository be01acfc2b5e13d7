#include "appliance/encoder/http/wanted_channel.h"

#include "appliance/serving/text.h"

Channel* wantedChannel(const HttpSession& session) {
    const std::string_view query = session.request().query();
    std::string camera = queryField(query, "camera").value_or("");
    if (camera.empty())
        camera = "1";
    if (camera == "quad" || queryField(query, "quad") == "1")
        camera = "0";
    const auto number = wholeNumber(camera);
    return number ? session.device().channel(*number) : nullptr;
}

void replyNoSuchCamera(HttpSession& session) {
    session.reply({404, "text/plain", "there is no such camera\n", {}});
}
