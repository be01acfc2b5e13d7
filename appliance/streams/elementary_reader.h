// Takes the video out of an MPEG-2 program or transport stream; an elementary stream is passed on as it is.
//
// The video is the first stream with a video identifier; tables of programs are not read. Memory is bounded: nothing is kept
// but the beginning of a packet. For one thread.
#pragma once

#include "appliance/streams/mpeg2_container.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace streams {

class ElementaryReader {
public:
    using Take = std::function<void(std::string_view bytes)>;

    // `take` gets the video's bytes, in order, valid during the call.
    ElementaryReader(Mpeg2Container container, Take take);

    void feed(std::string_view bytes);

private:
    bool stepProgram();
    bool stepTransport();
    void takeTransportPacket(std::string_view packet);
    void takeVideo(std::string_view payload, bool begins);
    void drop(std::size_t count) { start_ += count; }
    std::string_view waiting() const { return std::string_view(buffer_).substr(start_); }

    const Mpeg2Container container_;
    Take take_;
    std::string buffer_;
    std::size_t start_ = 0; // the bytes before it are used; dropped once per feed()
    std::size_t left_ = 0;  // program: bytes of the video packet that follow
    int pid_ = -1;          // transport: of the video; -1: not known yet
    bool inVideo_ = false;  // transport: a video packet has begun
};

} // namespace streams
