#include "appliance/gateway/service/source_plan.h"

#include <libcommon/parameter_lines.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <strings.h>

namespace gateway {
namespace {

constexpr std::string_view group = "Encoder.";
constexpr const char* host = "127.0.0.1";

int numberIn(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() && number > 0 ? number : 0;
}

std::string valueOf(const SourceSection& section, const char* key) {
    const auto found = section.keys.find(key);
    return found == section.keys.end() ? "" : found->second;
}

Transport transportOf(const std::string& text) {
    if (text == "tcp")
        return Transport::tcp;
    if (text == "multicast")
        return Transport::multicast;
    return text == "udp" ? Transport::udp : Transport::automatic;
}

class Planner {
public:
    Planner(int highestNumber, int port, bool smallScreen, const LearnedKinds& learned)
        : port_(port), smallScreen_(smallScreen), learned_(learned) {
        plan_.highestNumber = highestNumber;
    }

    SourcePlan plan(const std::vector<SourceSection>& sections) {
        // Numbers in the file count as given, so a new one never meets them.
        for (const SourceSection& section : sections) {
            if (!valueOf(section, "URL").empty())
                plan_.highestNumber =
                    std::max(plan_.highestNumber, numberIn(valueOf(section, "VideoSourceNumber")));
        }
        for (std::size_t i = 0; i < sections.size(); ++i) {
            if (!valueOf(sections[i], "URL").empty())
                add(static_cast<int>(i), sections[i]);
        }
        return std::move(plan_);
    }

private:
    void write(const SourceSection& section, const char* key, const std::string& value) {
        if (valueOf(section, key) != value)
            plan_.missing.push_back({std::string(group) + section.name + "." + key, value});
    }
    void complete(const SourceSection& section, const char* key, const std::string& value) {
        if (valueOf(section, key).empty())
            write(section, key, value);
    }

    void add(int index, const SourceSection& section) {
        CameraSettings camera;
        camera.mistake = readCameraUrl(valueOf(section, "URL"), camera.url);
        camera.number = numberOf(section);
        camera.name = section.keys.contains("Name") ? valueOf(section, "Name") : section.name;
        camera.transport = transportOf(valueOf(section, "Transport"));
        takeCredentials(section, camera);
        takeSubStream(section, camera);
        completeSection(section, camera);
        plan_.sources.push_back({index, camera});
    }

    int numberOf(const SourceSection& section) {
        int number = numberIn(valueOf(section, "VideoSourceNumber"));
        if (number == 0 || !used_.insert(number).second) {
            number = ++plan_.highestNumber;
            used_.insert(number);
        }
        return number;
    }

    void takeCredentials(const SourceSection& section, CameraSettings& camera) {
        if (!camera.mistake.empty())
            return;
        if (camera.url.user.empty() && camera.url.password.empty()) {
            camera.url.user = valueOf(section, "UserName");
            camera.url.password = valueOf(section, "Password");
            return;
        }
        write(section, "UserName", camera.url.user);
        write(section, "Password", camera.url.password);
        write(section, "URL", camera.url.text());
    }

    // A mistake in it counts when it is to be played.
    void takeSubStream(const SourceSection& section, CameraSettings& camera) {
        const std::string text = valueOf(section, "SubURL");
        if (text.empty() || !camera.mistake.empty())
            return;
        CameraUrl sub;
        std::string mistake = readCameraUrl(text, sub);
        if (mistake.empty() && sub.isMotionJpeg() != camera.url.isMotionJpeg())
            mistake = "the main stream and it are of different kinds";
        const std::string quality = valueOf(section, "Quality");
        if (!mistake.empty()) {
            camera.mistake = quality == "sub" ? "SubURL: " + mistake : "";
            return;
        }
        if (!sub.user.empty() || !sub.password.empty())
            write(section, "SubURL", sub.text());
        sub.user = camera.url.user;
        sub.password = camera.url.password;
        camera.sub = sub;
        camera.useSub = quality == "sub" || (quality != "main" && smallScreen_);
    }

    void completeSection(const SourceSection& section, const CameraSettings& camera) {
        // The address of a gateway whose port was another one.
        const std::string address = valueOf(section, "Address");
        if (address.empty() || address.starts_with(std::string(host) + ":"))
            write(section, "Address", std::string(host) + ":" + std::to_string(port_));
        write(section, "VideoSourceNumber", std::to_string(camera.number));
        const std::string type = valueOf(section, "VideoSourceType");
        if (camera.mistake.empty() && (type.empty() || type == "rtsp-tcp" || type == "mjpeg"))
            write(section, "VideoSourceType", typeFor(camera.played(), type));
        complete(section, "AutoEnabled", "yes");
        complete(section, "ManualEnabled", "yes");
        complete(section, "DisplayTime", "10");
        complete(section, "Resolution", "default");
        complete(section, "Compression", "default");
    }

    // A server may send something else than its URL says, so what was found out earlier stays.
    std::string typeFor(const CameraUrl& url, const std::string& present) const {
        const auto learned = learned_.find(url.text());
        if (learned == learned_.end() && url.isMotionJpeg() && !present.empty())
            return present;
        const bool pictures = learned == learned_.end() ? url.isMotionJpeg() : learned->second;
        return pictures ? "mjpeg" : "rtsp-tcp";
    }

    SourcePlan plan_;
    int port_;
    bool smallScreen_;
    const LearnedKinds& learned_;
    std::set<int> used_;
};

} // namespace

std::vector<SourceSection> sectionsIn(std::string_view text) {
    std::vector<SourceSection> sections;
    for (const libcommon::ParameterLine& line : libcommon::parameterLines(text)) {
        const bool opens = line.kind == libcommon::ParameterLine::Kind::Section;
        if (!opens && line.kind != libcommon::ParameterLine::Kind::Key)
            continue;
        if (line.section.size() <= group.size() ||
            strncasecmp(line.section.c_str(), group.data(), group.size()) != 0)
            continue;
        const std::string name = line.section.substr(group.size());
        auto section = std::ranges::find_if(sections, [&](const SourceSection& one) {
            return strcasecmp(one.name.c_str(), name.c_str()) == 0;
        });
        if (section == sections.end()) {
            sections.push_back({name, {}});
            section = std::prev(sections.end());
        }
        if (!opens)
            section->keys[istring(line.key.data(), line.key.size())] = line.value;
    }
    return sections;
}

SourcePlan planSources(const std::vector<SourceSection>& sections, int highestNumber, int port,
                       bool smallScreen, const LearnedKinds& learned) {
    return Planner(highestNumber, port, smallScreen, learned).plan(sections);
}

} // namespace gateway
