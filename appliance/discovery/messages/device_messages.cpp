#include "appliance/discovery/messages/device_messages.h"

#include "appliance/discovery/messages/soap.h"

#include <charconv>
#include <ctime>

namespace {

std::string request(std::string_view name, std::string_view content) {
    return std::string("<q:").append(name).append(" xmlns:q=\"") + soap::device + "\">" +
           std::string(content).append("</q:").append(name).append(">");
}

// Nothing if the text is no number from `lowest` to `highest`.
std::optional<int> numberAt(const XmlElement& element, std::string_view path, int lowest, int highest) {
    const std::string text = element.textAt(path);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < lowest || number > highest) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::string timeRequest() {
    return request("GetSystemDateAndTime", "");
}

std::string informationRequest() {
    return request("GetDeviceInformation", "");
}

std::string servicesRequest() {
    return request("GetServices", "<q:IncludeCapability>false</q:IncludeCapability>");
}

std::string capabilitiesRequest() {
    return request("GetCapabilities", "<q:Category>All</q:Category>");
}

std::optional<std::int64_t> readTime(const XmlElement& answer) {
    const XmlElement* const utc = answer.at("SystemDateAndTime/UTCDateTime");
    if (utc == nullptr) {
        return std::nullopt;
    }
    const std::optional<int> year = numberAt(*utc, "Date/Year", 1970, 9999);
    const std::optional<int> month = numberAt(*utc, "Date/Month", 1, 12);
    const std::optional<int> day = numberAt(*utc, "Date/Day", 1, 31);
    const std::optional<int> hour = numberAt(*utc, "Time/Hour", 0, 24);
    const std::optional<int> minute = numberAt(*utc, "Time/Minute", 0, 59);
    const std::optional<int> second = numberAt(*utc, "Time/Second", 0, 60);
    if (!year || !month || !day || !hour || !minute || !second) {
        return std::nullopt;
    }
    std::tm parts{};
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    parts.tm_hour = *hour;
    parts.tm_min = *minute;
    parts.tm_sec = *second;
    return timegm(&parts);
}

DeviceInformation readInformation(const XmlElement& answer) {
    return {answer.textAt("Manufacturer"), answer.textAt("Model"), answer.textAt("FirmwareVersion"),
            answer.textAt("SerialNumber"), answer.textAt("HardwareId")};
}

MediaServices readServices(const XmlElement& answer) {
    MediaServices found;
    for (const XmlElement& service : answer.children) {
        const std::string nameSpace = service.textAt("Namespace");
        if (nameSpace == soap::media) {
            found.media1 = service.textAt("XAddr");
        } else if (nameSpace == soap::media2) {
            found.media2 = service.textAt("XAddr");
        }
    }
    return found;
}

MediaServices readCapabilities(const XmlElement& answer) {
    return {answer.textAt("Capabilities/Media/XAddr"), answer.textAt("Capabilities/Extension/Media2/XAddr")};
}
