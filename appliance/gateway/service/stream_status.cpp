#include "appliance/gateway/service/stream_status.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace gateway {
namespace {

constexpr double secondUs = 1e6;

} // namespace

std::string oneDigit(double value) {
    const double rounded = std::round(value * 10) / 10;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", rounded);
    return text.data();
}

StreamStatus::Values StreamStatus::update(const CameraReport& report, std::int64_t now) {
    Values values;
    if (!report.open) {
        values["BitRate"] = values["FrameRate"] = "";
        open_ = false;
        return values;
    }
    addRates(report, now, values);
    values["Codec"] = report.info.video ? report.info.video->encodingName : "JPEG";
    values["Transport"] = report.info.transport;
    values["Encoded"] = report.info.encoded.empty() ? "" : report.info.encoded + " to " + values["Codec"];
    if (report.size)
        values["Resolution"] = std::to_string(report.size->width) + "x" + std::to_string(report.size->height);
    if (report.info.isPictures() || report.info.video->encodingName == "JPEG")
        values["KeyInterval"] = ""; // each picture is one
    else if (report.keyInterval > 0)
        values["KeyInterval"] = oneDigit(static_cast<double>(report.keyInterval) / secondUs);
    return values;
}

void StreamStatus::addRates(const CameraReport& report, std::int64_t now, Values& values) {
    // A new session may count from 0 again.
    const bool goesOn = open_ && now > at_ && report.bytes >= bytes_ && report.pictures >= pictures_;
    if (goesOn) {
        const double seconds = static_cast<double>(now - at_) / secondUs;
        const double kilobits = static_cast<double>(report.bytes - bytes_) * 8 / 1000;
        values["BitRate"] = std::to_string(std::lround(kilobits / seconds));
        values["FrameRate"] = oneDigit(static_cast<double>(report.pictures - pictures_) / seconds);
    }
    open_ = true;
    at_ = now;
    bytes_ = report.bytes;
    pictures_ = report.pictures;
}

} // namespace gateway
