#include "tests/fakes/fake_player.h"

namespace fake {

int nextPlayerPid = 1000;
std::function<int(SourceEntry*)> onLaunchPlayer;
std::function<void(int)> onGotoPtzPreset;
std::function<void(int, const Event*)> onHandleError;

void resetPlayer() {
    nextPlayerPid = 1000;
    onLaunchPlayer = nullptr;
    onGotoPtzPreset = nullptr;
    onHandleError = nullptr;
}

} // namespace fake

int launchPlayer(SourceEntry* entry) {
    const std::string which = entry == nullptr ? "null" : std::to_string(entry->index);
    fake::calls.push_back("launchPlayer(" + which + ")");
    if (fake::onLaunchPlayer)
        return fake::onLaunchPlayer(entry);
    return entry != nullptr && entry->detectedOK ? fake::nextPlayerPid++ : -1;
}

void gotoPtzPreset(int sourceIndex) {
    fake::calls.push_back("gotoPtzPreset(" + std::to_string(sourceIndex) + ")");
    if (fake::onGotoPtzPreset)
        fake::onGotoPtzPreset(sourceIndex);
}

void handleError(int sourceIndex, const Event* event) {
    fake::calls.push_back("handleError(" + std::to_string(sourceIndex) + "," + std::to_string(event->value1) +
                          "," + std::to_string(event->value2) + ")");
    if (fake::onHandleError)
        fake::onHandleError(sourceIndex, event);
}

int blankscreen() {
    fake::calls.push_back("blankscreen()");
    return 0;
}
