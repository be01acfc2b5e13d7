#include "appliance/encoder/device/parameter_table.h"

namespace {

constexpr std::string_view root = "root.";
constexpr const char* oldModelName = "root.BRAND.PRODFULLNAME";

std::string imageFormats(const Options& options) {
    std::string formats = "jpeg";
    if (options.offers(Kind::Mjpeg))
        formats += ",mjpeg";
    if (options.offers(Kind::Mpeg2) || options.offers(Kind::Sdp))
        formats += ",mpeg2";
    if (options.offersRtsp())
        formats += ",mpeg4"; // for every codec: decoders take this word to mean RTSP
    return formats;
}

bool inGroup(std::string_view name, std::string_view group) {
    return group.empty() || name == group ||
           (name.starts_with(group) && name.size() > group.size() && name[group.size()] == '.');
}

} // namespace

Parameters::Parameters(const Options& options) : old_(options.apiVersion < 2) {
    values_.emplace_back(oldModelName, options.model);
    if (old_)
        return;
    const std::string rotation = std::to_string(options.rotation);
    const std::size_t inputs = options.inputs.size();
    values_.emplace_back("Brand.ProdFullName", options.model);
    values_.emplace_back("Image.Rotation", rotation);
    // With fewer than five inputs, image 4 is the quad view.
    for (std::size_t i = 0; i < std::max<std::size_t>(inputs, 5); ++i) {
        if (i < inputs || i == 4)
            values_.emplace_back("Image.I" + std::to_string(i) + ".Appearance.Rotation", rotation);
    }
    values_.emplace_back("ImageSource.NbrOfSources", std::to_string(inputs));
    values_.emplace_back("Properties.API.HTTP.Version", std::to_string(options.apiVersion));
    values_.emplace_back("Properties.Image.Format", imageFormats(options));
}

ParameterReply Parameters::ask(ParameterCgi cgi, std::string_view group) const {
    if (old_ && cgi == ParameterCgi::View)
        return {404, "no such CGI\n"};
    std::string text;
    const bool rooted = group.starts_with(root);
    for (const auto& [name, value] : values_) {
        if (inGroup(name, group))
            text.append(name).append("=").append(value).append("\n");
        else if (rooted && inGroup(name, group.substr(root.size())))
            text.append(root).append(name).append("=").append(value).append("\n");
    }
    if (!text.empty())
        return {200, text};
    if (old_)
        return {404, "no such parameter\n"};
    return {200, "# no such parameter: " + std::string(group) + "\n"};
}
