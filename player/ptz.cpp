#include "player/ptz.h"

#include "process/signal_mask.h"
#include "recorder/recorded.h"
#include "sources/source_cache.h"
#include "sources/source_record.h"

#include <libcommon/network.h>

#include <ctime>
#include <string>

namespace {

constexpr int requestTimeout = 10; // seconds

// The request, and the ways to send it.
class PresetRequest {
public:
    PresetRequest(SourceParams& record, const std::string& preset)
        : user_(record["UserName"]), password_(record["Password"]), address_(record["Address"]),
          path_("/vexo-cgi/com/ptz.cgi?gotoserverpresetname=" + preset) {} // kept: not escaped

    // libcommon chooses the scheme. Returns the connect mode that worked, CONNECT_AUTO when none did.
    int sendAutomatically() const {
        ConnectMode mode = CONNECT_AUTO;
        const int result = recorded::download(address_, user_, password_, path_, nullptr, 0, requestTimeout,
                                              &mode, nullptr, nullptr);
        return result == 0 ? mode : CONNECT_AUTO;
    }

    bool sendHttp(bool withCredentials) const {
        unsigned short port = 80;
        const std::string host = split(port);
        return recorded::downloadHTTP(host, port, path_, withCredentials, user_, password_, nullptr, 0,
                                      requestTimeout, nullptr) == 0;
    }

    bool sendHttps() const {
        unsigned short port = 443;
        const std::string host = split(port);
        return recorded::downloadHTTPS(host, port, path_, user_, password_, nullptr, 0, requestTimeout) == 0;
    }

private:
    // An unreadable address gives an empty host, and the request then fails.
    std::string split(unsigned short& port) const {
        std::string host;
        splitAddress(address_, host, port);
        return host;
    }

    std::string user_;
    std::string password_;
    std::string address_;
    std::string path_;
};

void pauseBetweenTests() {
    recorder::outcome("pause", [] {
        const OpenSignals open; // a shutdown must be possible
        const timespec pause{0, 10'000'000};
        return nanosleep(&pause, nullptr);
    });
}

} // namespace

void gotoPtzPreset(int sourceIndex) {
    SourceParams record = readSource(sourceIndex);
    const std::string preset = record["PTZ"];
    if (preset.empty())
        return;
    SourceEntry* entry = getSourceEntry(sourceIndex);
    if (entry == nullptr)
        return;
    const PresetRequest request(record, preset);
    for (;;) {
        bool sent = false;
        switch (entry->connectMode) {
        case CONNECT_AUTO:
            entry->connectMode = request.sendAutomatically();
            return;
        case CONNECT_HTTP:
            sent = request.sendHttp(false);
            break;
        case CONNECT_HTTP_AUTH:
            sent = request.sendHttp(true);
            break;
        case CONNECT_HTTPS:
            sent = request.sendHttps();
            break;
        default: // kept: any other mode is tested forever
            pauseBetweenTests();
            continue;
        }
        if (sent)
            return;
        entry->connectMode = CONNECT_AUTO; // in the next pass libcommon finds the mode again
    }
}
