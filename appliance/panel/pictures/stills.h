// The last picture that each source showed, small, in memory. Any thread.
#pragma once

#include "appliance/jpeg/jpeg.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>

namespace panel {

struct Still {
    std::string source; // its name: numbers change when sources are added and removed
    JpegPtr jpeg;
    std::int64_t time = 0;    // of its frame, gettimeusec()'s clock
    std::int64_t version = 0; // grows with each still that is worth telling
};

class Stills {
public:
    static constexpr std::size_t mostStills = 1000;
    static constexpr std::size_t mostBytes = 16 * 1024 * 1024;
    static constexpr std::int64_t tellAfterUs = 10'000'000;

    // Keeps this one in place of the source's last. Drops the oldest when there are too many.
    // Returns whether its version is a new one: the source was not the last that was kept, or ten seconds are over.
    bool keep(const std::string& source, JpegPtr jpeg, std::int64_t time);

    std::optional<Still> find(const std::string& source) const;

private:
    void bound();

    mutable std::mutex mutex_;
    std::list<Still> stills_; // the newest first
    std::size_t bytes_ = 0;
    std::int64_t versions_ = 0;
    std::int64_t toldAt_ = 0;
};

} // namespace panel
