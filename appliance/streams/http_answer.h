// The answer to an HTTP/1.1 request, while it arrives: the header, then the body without its chunks.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace streams {

// Bytes in, body out. Memory is bounded: the header has at most 64 KiB. For one thread.
class HttpAnswer {
public:
    static constexpr std::size_t headerLimit = 64 * 1024;

    // Called once, after the header: the status and the content type, "" without one. False ends the answer.
    using Begin = std::function<bool(int status, const std::string& contentType)>;
    // A piece of the body. False ends the answer.
    using Body = std::function<bool(const char* bytes, std::size_t count)>;

    HttpAnswer(Begin begin, Body body);

    // Takes the next bytes. False when the answer is over: complete, malformed, or ended by one of the functions.
    bool feed(const char* bytes, std::size_t count);

    // Why the answer is malformed, for the log; "": it is not.
    const std::string& fault() const { return fault_; }

private:
    enum class Place { header, body, chunkSize, chunk, chunkEnd, trailer };

    bool fail(const char* fault);
    bool takeHeader();
    bool beginBody(std::string_view header);
    bool takeBody(std::string_view& bytes);
    bool takeLine(std::string_view& bytes);
    bool takeChunkLine();

    Begin begin_;
    Body body_;
    std::string fault_;
    std::string buffer_; // the header so far, or a line between two chunks
    Place place_ = Place::header;
    bool endless_ = false; // the body ends with the connection
    std::size_t left_ = 0; // bytes that are missing of the body or the chunk
};

} // namespace streams
