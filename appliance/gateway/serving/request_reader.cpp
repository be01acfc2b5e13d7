#include "appliance/gateway/serving/request_reader.h"

#include "appliance/serving/text.h"

#include <algorithm>
#include <cstdint>

namespace gateway {

bool RequestReader::add(std::string_view bytes) {
    received_ += bytes;
    return received_.size() <= 4 * maxHeadBytes;
}

// False when no whole packet is in front.
bool RequestReader::dropPacket() {
    constexpr std::size_t header = 4;
    if (received_.size() < header || received_[0] != '$')
        return false;
    const std::size_t length = static_cast<std::size_t>(static_cast<std::uint8_t>(received_[2])) << 8 |
                               static_cast<std::uint8_t>(received_[3]);
    if (received_.size() < header + length)
        return false;
    received_.erase(0, header + length);
    return true;
}

std::optional<Request> RequestReader::next(std::string& mistake) {
    do
        received_.erase(0, std::min(received_.find_first_not_of("\r\n"), received_.size()));
    while (dropPacket());
    if (received_.empty() || received_[0] == '$')
        return std::nullopt;
    const auto length = headLength(received_);
    if (!length && received_.size() <= maxHeadBytes)
        return std::nullopt;
    std::optional<Request> request =
        length && *length <= maxHeadBytes ? parseHead(received_.substr(0, *length)) : std::nullopt;
    if (!request) {
        mistake = "not a request";
        return std::nullopt;
    }
    const std::optional<int> body = wholeNumber(request->header("Content-Length").value_or("0"));
    if (!body || *body > static_cast<int>(maxHeadBytes)) {
        mistake = "the body is too long";
        return std::nullopt;
    }
    if (received_.size() < *length + static_cast<std::size_t>(*body))
        return std::nullopt;
    received_.erase(0, *length + static_cast<std::size_t>(*body));
    return request;
}

} // namespace gateway
