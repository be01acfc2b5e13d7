// Why a camera does not play.
#pragma once

#include <string>

namespace gateway {

enum class Fault {
    none,
    badUrl,
    noAddress,        // the name is unknown
    noRoute,          // the network does not reach it
    refused,          // nothing listens at the port
    noConnection,     // no answer to the connection, or TLS failed
    noCredentials,    // it asks for a user name and a password, and none is configured
    wrongCredentials, // it refuses the ones that are configured
    forbidden,
    wrongPath,   // 404
    noTransport, // 461: the camera does not send packets in the way that was asked for
    otherStatus,
    notUnderstood, // not what the URL's scheme promises
    unsupported,   // a codec that the players can't show
    noAnswer,
    noPackets, // the session is open and nothing comes
    silence,   // the stream has stopped without an end
    ended,     // the camera closed the stream
};

struct Failure {
    Fault fault = Fault::none;
    std::string
        text; // one sentence without a full stop, without secrets: "192.168.1.20:554 refuses connections"

    bool none() const { return fault == Fault::none; }
};

// Why the camera at `place` refuses, from the status that HTTP and RTSP share. `request` names what it refuses, with a blank
// before it (" DESCRIBE"), or is empty; `withUser`: the request had a user name.
inline Failure refusalOf(long status, const std::string& place, bool withUser,
                         const std::string& request = {}) {
    switch (status) {
    case 401:
        return withUser ? Failure{Fault::wrongCredentials, place + " refuses the user name or password"}
                        : Failure{Fault::noCredentials, place + " asks for a user name and a password"};
    case 403:
        return {Fault::forbidden, place + " forbids the stream to this user"};
    case 404:
        return {Fault::wrongPath, place + " has no stream at this path"};
    default:
        return {status == 461 ? Fault::noTransport : Fault::otherStatus,
                place + " answered" + request + " with " + std::to_string(status)};
    }
}

} // namespace gateway
