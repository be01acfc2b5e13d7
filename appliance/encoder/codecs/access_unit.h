// Encoded video, one picture at a time, and functions that examine its bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

enum class Codec { Mpeg4, H264, Mpeg2 };

struct AccessUnit {
    std::string bytes;        // with start codes; a key picture begins with the stream's headers
    bool key = false;         // can be decoded on its own
    std::int64_t time = 0;    // when the picture was taken: steady clock, nanoseconds
    std::uint64_t number = 0; // counts up from 1 in each stream
};

using AccessUnitPtr = std::shared_ptr<const AccessUnit>;

// The pieces between the start codes, without the codes and without the zeros that pad the end of a piece.
std::vector<std::string_view> piecesOf(std::string_view bytes);

// Whether a picture of that codec can be decoded on its own.
bool isKey(Codec codec, std::string_view bytes);
