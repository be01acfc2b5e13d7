// Which requests a download makes, and how it reports their results.
//
// download() tries plain HTTP first and HTTPS only where that can help. The timeout is for both together:
// - Connection refused, or none after half of the time, and the address names no port: HTTPS on port 443.
//   With a port in the address there is nothing else to try.
// - Connected, and the peer closed, reset or sent something that is not HTTP: it may speak TLS there. HTTPS
//   on the address's port, or 443.
// - Status 400 on a port that the address names: many servers give this answer, in clear text, on their TLS port.
//   Unless HTTPS gets an HTTP answer there, the result is the 400.
// Never after a name that does not resolve, an unreachable network, a silent peer or an interruption: an
// encoder that is dead or slow costs the timeout once. A redirect is a refusal and never followed.
#include "libcommon/src/http_client.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/network.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <curl/curl.h>

namespace network {

namespace {

constexpr unsigned short httpPort = 80;
constexpr unsigned short httpsPort = 443;
constexpr int noConnection = -4011;

bool isRefusalStatus(const HttpOutcome& outcome) {
    return outcome.transport == 0 && (outcome.status < 200 || outcome.status > 299);
}

int resultOf(const HttpOutcome& outcome) {
    if (outcome.transport != 0)
        return -std::clamp(outcome.transport, 1, 99);
    if (outcome.status < 100 || outcome.status > 999)
        return -CURLE_WEIRD_SERVER_REPLY;
    return isRefusalStatus(outcome) ? -outcome.status : outcome.bytes;
}

std::string reasonOf(const HttpOutcome& outcome) {
    if (isRefusalStatus(outcome))
        return "refused with HTTP status " + std::to_string(outcome.status);
    return outcome.reason;
}

// One request, its failure logged. The path is cut at its query, which may contain anything.
HttpOutcome attempt(const HttpRequest& request, NetworkOperation& operation) {
    HttpOutcome outcome = runRequest(request, operation);
    if (outcome.transport != 0 && outcome.transport != CURLE_ABORTED_BY_CALLBACK)
        logmsg(6, "Download of %s://%s:%d%s failed: %s (%d)", request.tls ? "https" : "http",
               request.host.c_str(), request.port, request.target.substr(0, request.target.find('?')).c_str(),
               outcome.reason.c_str(), -outcome.transport);
    return outcome;
}

bool isWorthTryingHttps(const HttpOutcome& plain, bool portIsWritten) {
    if (plain.transport == CURLE_ABORTED_BY_CALLBACK)
        return false;
    if (!plain.connected)
        return !portIsWritten && (plain.connectTimeOver || plain.systemError == ECONNREFUSED);
    if (plain.transport == 0)
        return portIsWritten && plain.status == 400;
    return plain.status == 0 && plain.transport != CURLE_OPERATION_TIMEDOUT;
}

// Further results of download().
struct Way {
    ConnectMode mode = CONNECT_UNKNOWN;
    unsigned short port = 0;
};

// `request` comes with everything but scheme, port and connect time; `writtenPort` 0: the address names none.
int downloadEitherWay(HttpRequest request, unsigned short writtenPort, NetworkOperation& operation,
                      Way& way) {
    const bool portIsWritten = writtenPort != 0;
    const std::int64_t now = gettimeusec();
    request.port = portIsWritten ? writtenPort : httpPort;
    request.connectUntil = portIsWritten ? operation.deadline() : now + (operation.deadline() - now) / 2;
    const HttpOutcome plain = attempt(request, operation);
    way = {plain.answeredChallenge ? CONNECT_HTTP_AUTH : CONNECT_HTTP, request.port};
    if (!isWorthTryingHttps(plain, portIsWritten) || gettimeusec() >= operation.deadline())
        return resultOf(plain);

    request.tls = true;
    request.port = portIsWritten ? writtenPort : httpsPort;
    request.connectUntil = operation.deadline();
    const HttpOutcome secure = attempt(request, operation);
    if (secure.transport != 0 && secure.transport != CURLE_ABORTED_BY_CALLBACK && plain.transport == 0)
        return resultOf(plain);
    way = {CONNECT_HTTPS, request.port};
    return resultOf(secure);
}

HttpRequest requestOf(const std::string& host, const std::string& path, const std::string& user,
                      const std::string& password, char* buffer, int size) {
    HttpRequest request;
    request.host = host;
    request.target = path;
    request.withCredentials = !user.empty();
    request.user = user;
    request.password = password;
    request.buffer = size > 0 ? buffer : nullptr;
    request.size = buffer == nullptr ? 0 : std::max(size, 0);
    return request;
}

} // namespace

} // namespace network

int download(const std::string& address, const std::string& user, const std::string& password,
             const std::string& path, char* buffer, int size, int timeout, ConnectMode* mode,
             unsigned short* port, char* host) {
    std::string hostName;
    unsigned short writtenPort = 0;
    if (splitAddress(address, hostName, writtenPort) != 0)
        return -CURLE_URL_MALFORMAT;
    network::NetworkOperation operation(network::deadlineAfter(timeout));
    network::Way way;
    const int result = network::downloadEitherWay(
        network::requestOf(hostName, path, user, password, buffer, size), writtenPort, operation, way);
    if (result < 0)
        return result;
    if (mode != nullptr)
        *mode = way.mode;
    if (port != nullptr)
        *port = way.port;
    if (host != nullptr)
        std::snprintf(host, hostBufferSize, "%s", hostName.c_str());
    return result;
}

int downloadHTTP(const std::string& host, unsigned short port, const std::string& path, bool withCredentials,
                 const std::string& user, const std::string& password, char* buffer, int size, int timeout,
                 char* errorText) {
    network::NetworkOperation operation(network::deadlineAfter(timeout));
    network::HttpRequest request =
        network::requestOf(host, path, withCredentials ? user : "", password, buffer, size);
    request.port = port;
    request.connectUntil = operation.deadline();
    const network::HttpOutcome outcome = network::attempt(request, operation);
    if (errorText != nullptr)
        std::snprintf(errorText, errorBufferSize, "%s", network::reasonOf(outcome).c_str());
    const bool wasInterrupted = outcome.transport == CURLE_ABORTED_BY_CALLBACK;
    const bool isOurFault =
        outcome.transport == CURLE_URL_MALFORMAT || outcome.transport == CURLE_FAILED_INIT;
    return outcome.connected || wasInterrupted || isOurFault ? network::resultOf(outcome)
                                                             : network::noConnection;
}

int downloadHTTPS(const std::string& host, unsigned short port, const std::string& path,
                  const std::string& user, const std::string& password, char* buffer, int size, int timeout) {
    network::NetworkOperation operation(network::deadlineAfter(timeout));
    network::HttpRequest request = network::requestOf(host, path, user, password, buffer, size);
    request.tls = true;
    request.port = port;
    request.connectUntil = operation.deadline();
    return network::resultOf(network::attempt(request, operation));
}
