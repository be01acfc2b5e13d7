// How often log-ins may be tried: from one address, and in all. Main loop's thread only.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace panel {

class TryLimit {
public:
    // Tries a minute from one address; ten times as many in all.
    explicit TryLimit(unsigned ofAddress)
        : ofAddress_(ofAddress), all_{static_cast<double>(ofAddress) * addresses, 0} {}

    // Counts a try. 0: it may go on; else the seconds to wait. `now` in seconds, any clock that never jumps.
    std::int64_t begin(std::string_view address, std::int64_t now);

    // The try was right: it does not count.
    void giveBack(std::string_view address);

private:
    static constexpr unsigned addresses = 10;
    static constexpr std::size_t mostAddresses = 4096;

    // Refills over a minute.
    struct Bucket {
        double tries = 0;
        std::int64_t filled = 0; // when
    };
    static std::int64_t secondsToWait(Bucket& bucket, unsigned most, std::int64_t now);
    void forgetFull(std::int64_t now);

    unsigned ofAddress_;
    Bucket all_;
    std::map<std::string, Bucket, std::less<>> buckets_; // by network
};

} // namespace panel
