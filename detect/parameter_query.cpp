#include "detect/parameter_query.h"

#include "detect/detection_state.h"
#include "detect/parameter_reply.h"
#include "detect/trace.h"
#include "detect/verdict.h"
#include "recorder/recorded.h"

#include <algorithm>

namespace detect {
namespace {

constexpr const char* viewerCgi = "/vexo-cgi/view/param.cgi?action=list&group=";
constexpr const char* oldAdminCgi = "/vexo-cgi/admin/getparam.cgi?";
constexpr const char* adminCgi = "/vexo-cgi/admin/param.cgi?action=list&group=";

std::string fetchResultText(int result, std::span<const char> buffer, const Endpoint& endpoint) {
    std::string text = downloadResultText(result);
    if (result <= 0)
        return text;
    if (buffer.size() > 1) // a single byte only says that a stream has begun
        text += " " + quoted({buffer.data(), std::min(buffer.size(), static_cast<std::size_t>(result))});
    return text + " via " + connectModeText(endpoint.mode);
}

// One request of one CGI; `downloaded` is the download's own result.
int request(const SourceEntry& entry, const char* cgi, const std::string& group, std::span<char> buffer,
            int& downloaded) {
    downloaded = fetch(entry, cgi + group, buffer, nullptr);
    if (downloaded > 0)
        return extractValue(buffer, downloaded, group) ? 1 : 0;
    buffer.back() = '\0'; // a broken transfer may leave any bytes
    return downloaded == 0 ? -1 : downloaded;
}

} // namespace

int fetch(const SourceEntry& entry, const std::string& path, std::span<char> buffer, Endpoint* endpoint) {
    TraceStep step("GET " + path);
    Endpoint found;
    char host[hostBufferSize] = "";
    const int result =
        recorded::download(entry.address, entry.userName, entry.password, path, buffer.data(),
                           static_cast<int>(buffer.size()), state.timeoutSeconds, &found.mode,
                           endpoint == nullptr ? nullptr : &found.port, endpoint == nullptr ? nullptr : host);
    step.answered(fetchResultText(result, buffer, found));
    if (endpoint != nullptr) {
        host[hostBufferSize - 1] = '\0';
        found.host = host;
        *endpoint = found;
    }
    return result;
}

int queryParameter(const SourceEntry& entry, const std::string& group, std::span<char> buffer) {
    int downloaded = 0;
    const int result = request(entry, viewerCgi, group, buffer, downloaded);
    if (recorded::isInterrupted())
        return -1;
    if (downloaded == -404)
        return request(entry, oldAdminCgi, group, buffer, downloaded);
    // A reply that begins with "#" is the encoder's error report.
    if (downloaded != -401 && buffer.front() != '#')
        return result;
    return request(entry, adminCgi, group, buffer, downloaded);
}

} // namespace detect
