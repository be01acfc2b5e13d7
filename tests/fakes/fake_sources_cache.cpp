#include "tests/fakes/fake_sources_cache.h"

namespace fake {

std::map<int, CachedSource> cachedSources;
std::function<SourceEntry*(int)> onGetSourceEntry;

void resetSourcesCache() {
    cachedSources.clear();
    onGetSourceEntry = nullptr;
}

SourceEntry& addSource(int index, const std::string& key) {
    CachedSource& source = cachedSources[index];
    source.key = key;
    source.entry.index = index;
    source.entry.detectedOK = true;
    return source.entry;
}

namespace {

// The detected source with this key, or null.
CachedSource* detectedSource(const std::string& key) {
    for (auto& [index, source] : cachedSources)
        if (source.key == key && source.detected)
            return &source;
    return nullptr;
}

CachedSource* sourceAt(int index) {
    const auto found = cachedSources.find(index);
    return found == cachedSources.end() ? nullptr : &found->second;
}

void forget(const std::string& key) {
    for (auto& [index, source] : cachedSources)
        if (source.key == key)
            source.detected = false;
}

} // namespace
} // namespace fake

std::string getSourceKey(int index) {
    const fake::CachedSource* source = fake::sourceAt(index);
    return source == nullptr ? "" : source->key;
}

bool isSourceDetected(int index) {
    const fake::CachedSource* source = fake::sourceAt(index);
    return source != nullptr && fake::detectedSource(source->key) != nullptr;
}

SourceEntry* getSourceEntry(int index) {
    fake::calls.push_back("getSourceEntry(" + std::to_string(index) + ")");
    if (fake::onGetSourceEntry)
        return fake::onGetSourceEntry(index);
    fake::CachedSource* source = fake::sourceAt(index);
    if (source == nullptr)
        return nullptr;
    if (fake::CachedSource* known = fake::detectedSource(source->key))
        return &known->entry;
    if (source->interrupted)
        return nullptr;
    source->detected = source->entry.detectedOK;
    return &source->entry;
}

void invalidateSource(int index) {
    fake::calls.push_back("invalidateSource(" + std::to_string(index) + ")");
    if (const fake::CachedSource* source = fake::sourceAt(index))
        fake::forget(source->key);
}

void flushSourceCache() {
    fake::calls.push_back("flushSourceCache()");
    for (auto& [index, source] : fake::cachedSources)
        source.detected = false;
}

void exchangeSourceCache(bool /*restores*/) {
    fake::calls.emplace_back("exchangeSourceCache()");
}
