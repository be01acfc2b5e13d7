#include "appliance/screen/wall/tile_service.h"

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/composition.h"
#include "appliance/screen/monitor/decoder_keys.h"
#include "appliance/screen/monitor/screen_report.h"
#include "appliance/screen/screen_settings.h"
#include "appliance/screen/wall/tile_messages.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>

#include <poll.h>
#include <unistd.h>
#include <utility>

namespace screen {
namespace {

// How often texts, parameters and status values are looked at. The monitor of one decoder does it at least as often.
constexpr int intervalMs = 100;
constexpr std::int64_t supervisorIntervalUs = 500'000;
constexpr int noticeMs = 3000;

class TileService {
public:
    explicit TileService(int socket)
        : socket_(socket), keys_([this](const std::string& text) { composer_.notice(text, noticeMs); },
                                 [this] { composer_.toggleName(); }) {}

    int run();

private:
    bool takeOrders(); // false: the wall has ended
    void carryOut(const TileKey& order);
    bool report(); // false: the wall has ended
    bool supervisorRuns(std::int64_t now);

    int socket_;
    Composer composer_;
    ApplianceView appliance_;
    SettingsReader settings_;
    DecoderKeys keys_;
    ScreenReport size_{getpid(), tileReport}; // for programs that choose by the size, such as camera-gateway
    bool sized_ = false;                      // the wall has told the size
    bool supervisor_ = false;
    std::int64_t supervisorAgainAt_ = 0;

    TileReport last_;                // as sent, without the images
    std::uint64_t lastOverlays_ = 0; // their version
    bool sent_ = false;
};

int TileService::run() {
    while (takeOrders()) {
        keys_.tick(gettimeusec());
        if (sized_)
            size_.update(composer_.look().screen.size, gettimeusec());
        if (sized_ && !report())
            break;
        pollfd readable{socket_, POLLIN, 0};
        poll(&readable, 1, intervalMs);
    }
    withdrawReport(getpid(), tileReport);
    return 0;
}

bool TileService::takeOrders() {
    while (true) {
        TileOrder order;
        switch (receiveOrder(socket_, order)) {
        case Received::nothing:
            return true;
        case Received::ended:
            return false;
        case Received::message:
            break;
        }
        if (const auto* key = std::get_if<TileKey>(&order)) {
            carryOut(*key);
        } else {
            composer_.useScreen(screenOf(std::get<TileSize>(order).size));
            sized_ = true;
        }
    }
}

void TileService::carryOut(const TileKey& order) {
    if (order.down)
        keys_.down(order.key, gettimeusec());
    else
        keys_.up(order.key, gettimeusec());
}

bool TileService::supervisorRuns(std::int64_t now) {
    if (now >= supervisorAgainAt_) {
        supervisor_ = libcommon::eventQueueOwner() != -1;
        supervisorAgainAt_ = now + supervisorIntervalUs;
    }
    return supervisor_;
}

bool TileService::report() {
    const std::int64_t now = gettimeusec();
    const Look& look = composer_.look();
    TileReport next;
    next.supervisor = supervisorRuns(now);
    next.blankedAt = appliance_.blankTime();
    next.fit = settings_.at(now, appliance_).fit;
    next.screen = look.screen.size;
    if (sent_ && next.supervisor == last_.supervisor && next.blankedAt == last_.blankedAt &&
        next.fit == last_.fit && next.screen == last_.screen && look.overlayVersion == lastOverlays_)
        return true;
    last_ = next;
    if (look.overlays != nullptr)
        next.overlays = *look.overlays;
    // A wall that has not read the earlier reports gets this one next time.
    sent_ = sendReport(socket_, next);
    lastOverlays_ = look.overlayVersion;
    return true;
}

} // namespace

int runTile(int socket) {
    return TileService(socket).run();
}

} // namespace screen
