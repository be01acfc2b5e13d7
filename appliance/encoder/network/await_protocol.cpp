#include "appliance/encoder/network/await_protocol.h"

namespace {

constexpr std::size_t longestLine = 4096;
constexpr std::chrono::seconds lineTime(10);

} // namespace

std::optional<Protocol> awaitProtocol(const Connection& connection, std::chrono::seconds idleTime) {
    if (connection.peek(1, in(idleTime), [](std::string_view) { return true; }).empty())
        return std::nullopt;
    const std::string start = connection.peek(
        longestLine, in(lineTime), [](std::string_view bytes) { return protocolOf(bytes).has_value(); });
    return protocolOf(start).value_or(Protocol::Http);
}
