#include "appliance/players/decoding/mpeg2_units.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace player {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view startCode("\0\0\1", 3);
constexpr int pictureCode = 0x00;
constexpr int lastSlice = 0xaf;
constexpr int sequenceCode = 0xb3;
constexpr int extensionCode = 0xb5;
constexpr int groupCode = 0xb8;
constexpr std::size_t lookedAt = 8; // bytes of a header that are looked at, with its start code

int byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

} // namespace

Mpeg2Units::Mpeg2Units(Take take) : take_(std::move(take)) {}

void Mpeg2Units::feed(std::string_view bytes, bool shown) {
    unit_.append(bytes);
    std::size_t code = unit_.find(startCode, searched_);
    for (; code != npos && isComplete(code); code = unit_.find(startCode, searched_))
        lookAt(code);
    shown_ = shown;
    searched_ = std::min(code, std::max(searched_, unit_.size() - std::min<std::size_t>(unit_.size(), 2)));
    searched_ -= unitStart_;
    unit_.erase(0, std::exchange(unitStart_, 0));
    if (unit_.size() > unitLimit)
        lose();
}

// Whether what is looked at of the header at that start code has come.
bool Mpeg2Units::isComplete(std::size_t code) const {
    const std::size_t bytes = unit_.size() - code;
    if (bytes <= startCode.size())
        return false;
    const int kind = byteAt(unit_, code + startCode.size());
    return bytes >= lookedAt || (kind > pictureCode && kind <= lastSlice);
}

void Mpeg2Units::lookAt(std::size_t code) {
    const int kind = byteAt(unit_, code + 3);
    const bool begins = kind == pictureCode || kind == sequenceCode || kind == groupCode;
    if (begins && lastRow_ > 0)
        take(code);
    else if (begins && std::exchange(damaged_, false))
        unitStart_ = code; // the bytes before it are the rest of the damaged picture
    const std::string_view header = std::string_view(unit_).substr(code, lookedAt + 1);
    if (kind == sequenceCode)
        readSequence(header);
    else if (kind == pictureCode)
        readPicture(header);
    else if (kind == extensionCode)
        readExtension(header);
    else if (kind <= lastSlice)
        lastRow_ = std::max(lastRow_, kind);
    searched_ = code + startCode.size();
}

void Mpeg2Units::readSequence(std::string_view header) {
    const int height = (byteAt(header, 5) & 15) << 8 | byteAt(header, 6);
    rows_ = (height + 15) / 16;
    key_ = true;
}

void Mpeg2Units::readPicture(std::string_view header) {
    constexpr int intra = 1;
    field_ = false;
    key_ = key_ || (byteAt(header, 5) >> 3 & 7) == intra;
}

void Mpeg2Units::readExtension(std::string_view header) {
    constexpr int pictureCoding = 8;
    constexpr int wholePicture = 3;
    if (byteAt(header, 4) >> 4 == pictureCoding)
        field_ = (byteAt(header, 6) & 3) != wholePicture;
}

// Gives the picture from unitStart_ to `end`.
void Mpeg2Units::take(std::size_t end) {
    const bool damaged = std::exchange(damaged_, false);
    const bool key = std::exchange(key_, false);
    lastRow_ = 0;
    const std::string unit = unit_.substr(unitStart_, end - unitStart_);
    unitStart_ = end;
    keyed_ = keyed_ || key;
    if (keyed_ && !damaged)
        take_(unit, shown_);
}

void Mpeg2Units::end() {
    if (lastRow_ == 0)
        return;
    take(unit_.size());
    unit_.clear();
    searched_ = unitStart_ = 0;
}

std::string Mpeg2Units::firstPicture() const {
    const bool has = !keyed_ && key_ && !damaged_ && !field_ && rows_ > 0 && lastRow_ >= rows_;
    return has ? unit_ : "";
}

void Mpeg2Units::lose() {
    unit_.clear();
    searched_ = unitStart_ = 0;
    lastRow_ = 0;
    key_ = false;
    damaged_ = true;
}

} // namespace player
