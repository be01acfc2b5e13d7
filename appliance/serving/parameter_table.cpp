#include "appliance/serving/parameter_table.h"

#include "appliance/serving/text.h"

#include <algorithm>

namespace {

constexpr std::string_view adminParameterPath = "/vexo-cgi/admin/param.cgi";
constexpr std::string_view adminGetParameterPath = "/vexo-cgi/admin/getparam.cgi";
constexpr std::string_view root = "root.";
constexpr const char* oldModelName = "root.BRAND.PRODFULLNAME";

bool inGroup(std::string_view name, std::string_view group) {
    return group.empty() || name == group ||
           (name.starts_with(group) && name.size() > group.size() && name[group.size()] == '.');
}

} // namespace

Parameters::Parameters(const DeviceFacts& facts) : old_(facts.apiVersion < 2) {
    values_.emplace_back(oldModelName, facts.model);
    if (old_)
        return;
    const std::string rotation = std::to_string(facts.rotation);
    values_.emplace_back("Brand.ProdFullName", facts.model);
    values_.emplace_back("Image.Rotation", rotation);
    // With fewer than five inputs, image 4 is the quad view.
    for (std::size_t i = 0; i < std::max<std::size_t>(facts.inputs, 5); ++i) {
        if (i < facts.inputs || i == 4)
            values_.emplace_back("Image.I" + std::to_string(i) + ".Appearance.Rotation", rotation);
    }
    values_.emplace_back("ImageSource.NbrOfSources", std::to_string(facts.inputs));
    values_.emplace_back("Properties.API.HTTP.Version", std::to_string(facts.apiVersion));
    values_.emplace_back("Properties.Image.Format", facts.imageFormats);
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

ParameterReply Parameters::list(ParameterCgi cgi, std::string_view query) const {
    const auto action = queryField(query, "action");
    if (action && *action != "list")
        return {400, "# the only action is list\n"};
    return ask(cgi, queryField(query, "group").value_or(""));
}

std::optional<ParameterReply> Parameters::replyTo(const Request& request) const {
    const std::string_view path = request.path();
    if (path == viewParameterPath)
        return list(ParameterCgi::View, request.query());
    if (path == adminParameterPath)
        return list(ParameterCgi::Admin, request.query());
    if (path == adminGetParameterPath)
        return ask(ParameterCgi::AdminGet, percentDecoded(request.query()));
    return std::nullopt;
}
