#include "appliance/encoder/network/answering_faults.h"

#include <array>
#include <chrono>
#include <random>
#include <string>

namespace {

constexpr std::chrono::minutes longest(5);
constexpr std::chrono::seconds pieceTime(5);
constexpr std::size_t hugeBytes = 100UL * 1000 * 1000;
constexpr std::size_t garbageBytes = 4096;

void sendGarbage(Connection& connection) {
    std::mt19937 random(std::random_device{}());
    std::string bytes(garbageBytes, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    connection.write({bytes}, in(pieceTime));
}

void sendHuge(const Device& device, Connection& connection, const std::string& protocol) {
    const std::string head =
        protocol + " 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(hugeBytes) +
        "\r\n\r\n";
    if (!connection.write({head}, in(pieceTime)))
        return;
    const std::string piece(64000, 'x');
    const Deadline end = in(longest);
    for (std::size_t sent = 0; sent < hugeBytes; sent += piece.size()) {
        if (device.stopping() || in({}) > end || !connection.write({piece}, in(pieceTime)))
            return;
    }
}

void sendEndlessHeaders(const Device& device, Connection& connection, const std::string& protocol) {
    const Deadline end = in(longest);
    std::string piece;
    for (int i = 0; i < 100; ++i)
        piece += "X-Endless-" + std::to_string(i) + ": and one more\r\n";
    bool ok = connection.write({protocol + " 200 OK\r\n"}, in(pieceTime));
    while (ok && !device.stopping() && in({}) < end)
        ok = connection.write({piece}, in(pieceTime));
}

} // namespace

std::optional<Fault> answeringFault(const FaultSet& faults) {
    for (const Fault fault : {Fault::Silent, Fault::Garbage, Fault::Huge, Fault::EndlessHeaders}) {
        if (faults.has(fault))
            return fault;
    }
    return std::nullopt;
}

void answerWithFault(Fault fault, const Device& device, Connection& connection, const std::string& protocol) {
    if (fault == Fault::Silent)
        connection.waitForPeerToLeave(in(longest)); // ended by Connection::shutdown() when the device stops
    else if (fault == Fault::Garbage)
        sendGarbage(connection);
    else if (fault == Fault::Huge)
        sendHuge(device, connection, protocol);
    else if (fault == Fault::EndlessHeaders)
        sendEndlessHeaders(device, connection, protocol);
}
