#include "appliance/encoder/onvif/operations.h"

#include "appliance/discovery/messages/soap.h"
#include "appliance/encoder/onvif/probe_answer.h"

#include <array>
#include <ctime>

namespace {

std::string element(std::string_view name, std::string_view content) {
    return "<" + std::string(name) + ">" + std::string(content) + "</" + std::string(name) + ">";
}

std::string number(std::string_view name, int value) {
    return element(name, std::to_string(value));
}

// ---- The device service. -----------------------------------------------------------------------------------------

std::string dateAndTime(const OnvifContext& context) {
    const std::time_t now = static_cast<std::time_t>(context.now);
    std::tm parts{};
    gmtime_r(&now, &parts);
    const std::string time =
        element("tt:Time", number("tt:Hour", parts.tm_hour) + number("tt:Minute", parts.tm_min) +
                               number("tt:Second", parts.tm_sec)) +
        element("tt:Date", number("tt:Year", parts.tm_year + 1900) + number("tt:Month", parts.tm_mon + 1) +
                               number("tt:Day", parts.tm_mday));
    return element("tds:SystemDateAndTime",
                   element("tt:DateTimeType", "Manual") + element("tt:DaylightSavings", "false") +
                       element("tt:TimeZone", element("tt:TZ", "UTC0")) + element("tt:UTCDateTime", time) +
                       element("tt:LocalDateTime", time));
}

std::string deviceInformation(const OnvifContext& context) {
    return element("tds:Manufacturer", "video-encoder") +
           element("tds:Model", xmlEscaped(context.facts.model)) + element("tds:FirmwareVersion", "1") +
           element("tds:SerialNumber", context.facts.endpoint.substr(9)) +
           element("tds:HardwareId", "software");
}

std::string service(const OnvifContext& context, const char* nameSpace, const char* path, int major) {
    return element("tds:Service",
                   element("tds:Namespace", nameSpace) +
                       element("tds:XAddr", xmlEscaped(context.place.url("http", path))) +
                       element("tds:Version", number("tt:Major", major) + number("tt:Minor", 0)));
}

std::string services(const OnvifContext& context) {
    return service(context, soap::device, onvifDevicePath, 2) +
           service(context, soap::media, onvifMediaPath, 2) +
           service(context, soap::media2, onvifMedia2Path, 2);
}

std::string capabilities(const OnvifContext& context) {
    const std::string streaming = element("tt:StreamingCapabilities", element("tt:RTPMulticast", "false") +
                                                                          element("tt:RTP_TCP", "true") +
                                                                          element("tt:RTP_RTSP_TCP", "true"));
    return element(
        "tds:Capabilities",
        element("tt:Device", element("tt:XAddr", xmlEscaped(context.place.url("http", onvifDevicePath)))) +
            element("tt:Media",
                    element("tt:XAddr", xmlEscaped(context.place.url("http", onvifMediaPath))) + streaming));
}

std::string scopes(const OnvifContext& context) {
    std::string list;
    for (const std::string& scope : scopesOf(context.facts))
        list += element("tds:Scopes",
                        element("tt:ScopeDef", "Fixed") + element("tt:ScopeItem", xmlEscaped(scope)));
    return list;
}

std::string hostname(const OnvifContext& context) {
    return element("tds:HostnameInformation",
                   element("tt:FromDHCP", "false") + element("tt:Name", xmlEscaped(context.facts.name)));
}

// ---- The media services. -----------------------------------------------------------------------------------------

std::string resolution(const OnvifFacts& facts) {
    return element("tt:Resolution", number("tt:Width", facts.width) + number("tt:Height", facts.height));
}

std::string rateControl(const OnvifFacts& facts, bool second) {
    return second ? "<tt:RateControl ConstantBitRate=\"false\">" + number("tt:FrameRateLimit", facts.fps) +
                        number("tt:BitrateLimit", facts.bitrate) + "</tt:RateControl>"
                  : element("tt:RateControl", number("tt:FrameRateLimit", facts.fps) +
                                                  number("tt:EncodingInterval", 1) +
                                                  number("tt:BitrateLimit", facts.bitrate));
}

std::string sourceConfiguration(const OnvifFacts& facts, int input) {
    const std::string token = std::to_string(input);
    return element("tt:Name", "Input " + token) + number("tt:UseCount", 2) +
           element("tt:SourceToken", "source_" + token) + "<tt:Bounds x=\"0\" y=\"0\" width=\"" +
           std::to_string(facts.width) + "\" height=\"" + std::to_string(facts.height) + "\"/>";
}

constexpr const char* noMulticast =
    "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address></tt:Address>"
    "<tt:Port>0</tt:Port><tt:TTL>1</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>";

std::string codecSettings(const OnvifFacts& facts, const OnvifProfile& profile) {
    if (profile.codec == "H264")
        return element("tt:H264",
                       number("tt:GovLength", facts.keyInterval) + element("tt:H264Profile", "Main"));
    if (profile.codec == "MPEG4")
        return element("tt:MPEG4",
                       number("tt:GovLength", facts.keyInterval) + element("tt:Mpeg4Profile", "SP"));
    return {};
}

std::string encoderConfiguration(const OnvifFacts& facts, const OnvifProfile& profile) {
    return element("tt:Name", profile.name) + number("tt:UseCount", 1) +
           element("tt:Encoding", profile.codec) + resolution(facts) + number("tt:Quality", 5) +
           rateControl(facts, false) + codecSettings(facts, profile) + noMulticast +
           element("tt:SessionTimeout", "PT60S");
}

std::string profileContent(const OnvifFacts& facts, const OnvifProfile& profile) {
    return element("tt:Name", profile.name) + "<tt:VideoSourceConfiguration token=\"video_" +
           std::to_string(profile.input) + "\">" + sourceConfiguration(facts, profile.input) +
           "</tt:VideoSourceConfiguration><tt:VideoEncoderConfiguration token=\"encoder_" + profile.token +
           "\">" + encoderConfiguration(facts, profile) + "</tt:VideoEncoderConfiguration>";
}

std::string profiles(const OnvifContext& context) {
    std::string list;
    for (const OnvifProfile& profile : context.facts.profiles)
        list += "<trt:Profiles fixed=\"true\" token=\"" + profile.token + "\">" +
                profileContent(context.facts, profile) + "</trt:Profiles>";
    return list;
}

std::string profiles2(const OnvifContext& context) {
    const OnvifFacts& facts = context.facts;
    std::string list;
    for (const OnvifProfile& profile : facts.profiles)
        list += "<tr2:Profiles fixed=\"true\" token=\"" + profile.token + "\">" +
                element("tr2:Name", profile.name) + "<tr2:Configurations><tr2:VideoSource token=\"video_" +
                std::to_string(profile.input) + "\">" + sourceConfiguration(facts, profile.input) +
                "</tr2:VideoSource><tr2:VideoEncoder token=\"encoder_" + profile.token + "\" GovLength=\"" +
                std::to_string(facts.keyInterval) + "\">" + element("tt:Name", profile.name) +
                number("tt:UseCount", 1) + element("tt:Encoding", profile.codec2) + resolution(facts) +
                rateControl(facts, true) + number("tt:Quality", 5) +
                "</tr2:VideoEncoder></tr2:Configurations></tr2:Profiles>";
    return list;
}

std::string videoSources(const OnvifContext& context) {
    std::string list;
    for (int input = 1; input <= context.facts.inputs; ++input)
        list += "<trt:VideoSources token=\"source_" + std::to_string(input) + "\">" +
                number("tt:Framerate", context.facts.fps) + resolution(context.facts) + "</trt:VideoSources>";
    return list;
}

const OnvifProfile* wantedProfile(const XmlElement& request, const OnvifFacts& facts) {
    const std::string token = request.textAt("ProfileToken");
    for (const OnvifProfile& profile : facts.profiles) {
        if (profile.token == token)
            return &profile;
    }
    return nullptr;
}

std::string mediaUri(const std::string& url) {
    return element("trt:MediaUri",
                   element("tt:Uri", xmlEscaped(url)) + element("tt:InvalidAfterConnect", "false") +
                       element("tt:InvalidAfterReboot", "false") + element("tt:Timeout", "PT0S"));
}

// ---- Operations that need a profile; "" if it does not exist. ------------------------------------------------------

std::string oneProfile(const XmlElement& request, const OnvifContext& context) {
    const OnvifProfile* const profile = wantedProfile(request, context.facts);
    return profile == nullptr ? std::string()
                              : "<trt:Profile fixed=\"true\" token=\"" + profile->token + "\">" +
                                    profileContent(context.facts, *profile) + "</trt:Profile>";
}

std::string streamUri(const XmlElement& request, const OnvifContext& context) {
    const OnvifProfile* const profile = wantedProfile(request, context.facts);
    return profile == nullptr ? std::string() : mediaUri(context.place.url(profile->scheme, profile->path));
}

std::string streamUri2(const XmlElement& request, const OnvifContext& context) {
    const OnvifProfile* const profile = wantedProfile(request, context.facts);
    return profile == nullptr
               ? std::string()
               : element("tr2:Uri", xmlEscaped(context.place.url(profile->scheme, profile->path)));
}

std::string snapshotUri(const XmlElement& request, const OnvifContext& context) {
    const OnvifProfile* const profile = wantedProfile(request, context.facts);
    return profile == nullptr ? std::string()
                              : mediaUri(context.place.url("http", "/vexo-cgi/jpg/image.cgi?camera=" +
                                                                       std::to_string(profile->input)));
}

template<std::string (*answer)(const OnvifContext&)>
std::string withoutRequest(const XmlElement& /*request*/, const OnvifContext& context) {
    return answer(context);
}

struct Operation {
    const char* nameSpace;
    const char* prefix;
    const char* name;
    std::string (*answer)(const XmlElement&, const OnvifContext&);
    bool open; // needs no credentials
};

constexpr std::array operations{
    Operation{soap::device, "tds", "GetSystemDateAndTime", withoutRequest<dateAndTime>, true},
    Operation{soap::device, "tds", "GetServices", withoutRequest<services>, true},
    Operation{soap::device, "tds", "GetCapabilities", withoutRequest<capabilities>, true},
    Operation{soap::device, "tds", "GetDeviceInformation", withoutRequest<deviceInformation>, false},
    Operation{soap::device, "tds", "GetScopes", withoutRequest<scopes>, false},
    Operation{soap::device, "tds", "GetHostname", withoutRequest<hostname>, true},
    Operation{soap::media, "trt", "GetProfiles", withoutRequest<profiles>, false},
    Operation{soap::media, "trt", "GetProfile", oneProfile, false},
    Operation{soap::media, "trt", "GetVideoSources", withoutRequest<videoSources>, false},
    Operation{soap::media, "trt", "GetStreamUri", streamUri, false},
    Operation{soap::media, "trt", "GetSnapshotUri", snapshotUri, false},
    Operation{soap::media2, "tr2", "GetProfiles", withoutRequest<profiles2>, false},
    Operation{soap::media2, "tr2", "GetStreamUri", streamUri2, false},
};

} // namespace

bool isOpenOperation(std::string_view name) {
    for (const Operation& operation : operations) {
        if (name == operation.name)
            return operation.open;
    }
    return false;
}

std::optional<std::string> answerOperation(const XmlElement& request, const OnvifContext& context) {
    for (const Operation& operation : operations) {
        if (request.name != operation.name || request.nameSpace != operation.nameSpace)
            continue;
        const std::string content = operation.answer(request, context);
        const std::string name = std::string(operation.prefix) + ":" + operation.name + "Response";
        return content.empty() && request.child("ProfileToken") != nullptr
                   ? std::string()
                   : "<" + name + " xmlns:" + operation.prefix + "=\"" + operation.nameSpace +
                         "\" xmlns:tt=\"" + soap::schema + "\">" + content + "</" + name + ">";
    }
    return std::nullopt;
}

std::string onvifFault(std::string_view code, std::string_view reason) {
    return std::string("<s:Fault><s:Code><s:Value>s:Sender</s:Value><s:Subcode><s:Value xmlns:ter=\"") +
           soap::error + "\">ter:" + std::string(code) +
           "</s:Value></s:Subcode></s:Code><s:Reason><s:Text xml:lang=\"en\">" + xmlEscaped(reason) +
           "</s:Text></s:Reason></s:Fault>";
}
