#include "sources/source_cache.h"

#include "detect/detection.h"
#include "recorder/fields.h"
#include "recorder/secrets.h"
#include "sources/source_record.h"

#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>

namespace {

using Cache = std::map<std::string, std::unique_ptr<SourceEntry>>;

// All process-wide state of this file: one entry for each source key, empty at start. Main thread only. Never
// destroyed, because the shutdown handler may end the process while the main thread uses it.
Cache& cache() {
    static Cache& entries = *new Cache;
    return entries;
}

// The status values of a detection, in the order in which they are cleared and copied. kept: "ImageRotation" is not
// one of them; it is neither copied to a source that shares the entry nor cleared when the entry is forgotten.
constexpr std::array detectionKeys{
    "NumberOfVideoSources", "VideoSourceType", "ConnectMode", "Audio",     "AudioFormat",
    "APIVersion",           "Model",           "BitRate",     "FrameRate", "Resolution"};

// The record of a source. No value when the index names no source; an empty record could be that of a source.
std::optional<SourceParams> findSource(int index) {
    const SubGroups sources = readSources();
    if (index < 0 || static_cast<std::size_t>(index) >= sources.size())
        return std::nullopt;
    return sources[static_cast<std::size_t>(index)];
}

int decimal(const std::string& text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

void shareDetection(const SourceEntry& entry, int index) {
    for (const char* key : detectionKeys)
        copyStatus(entry.index, index, key);
    status(index, "ErrorCode", 0);
}

// The other detection members keep what an earlier, failed detection left in them.
void fill(SourceEntry& entry, SourceParams& params, int index) {
    entry.index = index;
    entry.address = params["Address"];
    entry.userName = params["UserName"];
    entry.password = params["Password"];
    entry.sourceNumber = decimal(params["VideoSourceNumber"]);
    entry.configuredType = getNumberByString(params["VideoSourceType"].c_str(), videoSourceTypeString);
    entry.detectedOK = false;
    entry.errorCode = 0;
    entry.recoveryStep = 0;
}

// A user name or a password, of which a recording only has whether it is set.
void exchangeSecret(recorder::Fields& fields, std::string& secret) {
    std::string flag(secret.empty() ? "" : recorder::hidden);
    fields(flag);
    if (fields.restores())
        secret = flag;
}

void exchangeAddress(recorder::Fields& fields, std::string& address) {
    std::string shown = recorder::withoutUser(address);
    fields(shown);
    if (fields.restores())
        address = shown;
}

void exchangePort(recorder::Fields& fields, std::uint16_t& port) {
    int number = port;
    fields(number);
    port = static_cast<std::uint16_t>(number);
}

void exchangeEntry(std::string& key, SourceEntry& entry, bool restores) {
    recorder::Crossing crossing("entry");
    recorder::Fields fields(crossing, restores);
    exchangeAddress(fields, key);
    exchangeAddress(fields, entry.address);
    exchangeSecret(fields, entry.userName);
    exchangeSecret(fields, entry.password);
    fields(entry.index)(entry.sourceNumber)(entry.configuredType)(entry.detectedOK)(entry.errorCode);
    fields(entry.detectedType)(entry.audioAvailable)(entry.connectMode)(entry.recoveryStep);
    exchangeAddress(fields, entry.rtspHost);
    exchangePort(fields, entry.rtspPort);
    exchangeAddress(fields, entry.audioHost);
    exchangePort(fields, entry.audioPort);
    fields(entry.streamOptions);
}

} // namespace

std::string getSourceKey(int index) {
    std::optional<SourceParams> params = findSource(index);
    return params ? sourceKey(*params) : "";
}

bool isSourceDetected(int index) {
    std::optional<SourceParams> params = findSource(index);
    if (!params)
        return false;
    const auto found = cache().find(sourceKey(*params));
    return found != cache().end() && found->second->detectedOK;
}

SourceEntry* getSourceEntry(int index) {
    std::optional<SourceParams> params = findSource(index);
    if (!params)
        return nullptr;
    const std::string key = sourceKey(*params);
    std::unique_ptr<SourceEntry>& slot = cache()[key];
    if (!slot)
        slot = std::make_unique<SourceEntry>();
    if (slot->detectedOK) {
        shareDetection(*slot, index);
        return slot.get();
    }
    fill(*slot, *params, index);
    if (!detectSource(*slot, index)) {
        status(index, "ErrorCode", "");
        invalidateSource(index);
        // The sources may have changed during the detection, and the index then leads to another key. The entry that
        // was filled must be removed in any case.
        cache().erase(key);
        return nullptr;
    }
    return slot.get();
}

void invalidateSource(int index) {
    logmsg(7, "Invalidating source cache entry %d", index);
    std::optional<SourceParams> params = findSource(index);
    if (!params)
        return;
    for (const char* key : detectionKeys)
        status(index, key, "");
    cache().erase(sourceKey(*params));
}

void flushSourceCache() {
    // The lock is held during both steps, so that no process can change a source after its entry is deleted and before
    // its status values are dropped.
    userOpenAndLockParamFile(0, 1);
    cache().clear();
    syncEncoderInfo();
    userCloseAndUnlockParamFile(0, 1);
}

void exchangeSourceCache(bool restores) {
    auto count = static_cast<std::int64_t>(cache().size());
    {
        recorder::Crossing crossing("cache");
        recorder::Fields fields(crossing, restores);
        fields(count);
    }
    if (!restores) {
        for (auto& [key, entry] : cache()) {
            std::string shown = key;
            exchangeEntry(shown, *entry, false);
        }
        return;
    }
    cache().clear();
    for (std::int64_t i = 0; i < count; ++i) {
        std::string key;
        auto entry = std::make_unique<SourceEntry>();
        exchangeEntry(key, *entry, true);
        cache()[key] = std::move(entry);
    }
}
