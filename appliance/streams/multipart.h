// Takes a multipart body (multipart/x-mixed-replace) apart, as it comes.
//
// Parts may tell their length or not; boundaries may or may not be announced, with or without their leading
// dashes. What does not fit is skipped up to the next boundary. Memory is bounded: 8 KiB of header a part, 8
// MiB of body; longer ones are skipped. No threads.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace streams {

class MultipartReader {
public:
    static constexpr std::size_t headerLimit = 8 * 1024;
    static constexpr std::size_t partLimit = 8 * 1024 * 1024;

    // `contentType` is the response's; `part` gets each whole part's body, valid during the call.
    MultipartReader(std::string_view contentType, std::function<void(std::string_view)> part);

    void feed(const char* bytes, std::size_t count);

    std::size_t skipped() const { return skipped_; } // parts that were too long or broken

private:
    enum class Place { beforePart, inHeader, inBody };

    bool step();
    bool findBoundary();
    bool readHeader();
    bool readBody();
    bool takeBody(std::size_t length, std::size_t consumed);
    void drop(std::size_t count);
    std::size_t boundaryAfter(std::size_t start) const;

    std::function<void(std::string_view)> part_;
    std::string boundary_; // with its two leading dashes; "" not known yet
    std::string buffer_;
    std::size_t searched_ = 0; // no boundary begins before this in buffer_
    std::size_t length_ = 0;   // of the body, npos: not told
    std::size_t skipped_ = 0;
    Place place_ = Place::beforePart;
};

} // namespace streams
