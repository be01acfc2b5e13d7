// Splits a multipart body (multipart/x-mixed-replace) into its parts while it arrives.
//
// A part may have a Content-Length or not. The boundary may be missing in the content type, or be given there
// with its leading dashes. Malformed parts are skipped up to the next boundary. Memory is bounded: a part has
// at most 8 KiB of header and 8 MiB of body; longer ones are skipped. For one thread.
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

    // `contentType` of the response. `part` gets the body of each complete part, valid during the call.
    MultipartReader(std::string_view contentType, std::function<void(std::string_view)> part);

    void feed(const char* bytes, std::size_t count);

    std::size_t skipped() const { return skipped_; } // number of parts that were too long or malformed

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
    std::string boundary_; // with its two leading dashes; "": not known yet
    std::string buffer_;
    std::size_t searched_ = 0; // no boundary begins in buffer_ before this
    std::size_t length_ = 0;   // of the body; npos: unknown
    std::size_t skipped_ = 0;
    Place place_ = Place::beforePart;
};

} // namespace streams
