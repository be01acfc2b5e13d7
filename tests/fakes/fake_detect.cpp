#include "tests/fakes/fake_detect.h"

namespace fake {

std::function<bool(SourceEntry& entry, int statusId)> onDetectSource;

void resetDetect() {
    onDetectSource = nullptr;
}

} // namespace fake

bool detectSource(SourceEntry& entry, int statusId) {
    const std::string index = std::to_string(entry.index);
    fake::calls.push_back(entry.index == statusId
                              ? "detectSource(" + index + ")"
                              : "detectSource(" + index + ",status " + std::to_string(statusId) + ")");
    if (fake::onDetectSource)
        return fake::onDetectSource(entry, statusId);
    entry.detectedOK = true;
    return true;
}
