// Splits an MPEG-2 (or MPEG-1) video elementary stream into pictures.
//
// A picture ends where the next one begins, which in a live stream is a whole period later. So the one who feeds tells when
// a picture is known to be complete, and may look at the first one before that. For one thread.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace player {

class Mpeg2Units {
public:
    static constexpr std::size_t unitLimit = 8 * 1024 * 1024; // longer pictures are dropped

    // Gets each picture with the headers before it. The first one is a key picture. `shown` is that of the picture's last
    // bytes.
    using Take = std::function<void(const std::string& unit, bool shown)>;
    explicit Mpeg2Units(Take take);

    void feed(std::string_view bytes, bool shown = true);

    // The present picture is complete: its last packet has come.
    void end();

    // The first key picture as far as it has come, if its last row has begun; "" otherwise, and as soon as the picture was
    // given. The end of its last row may be missing.
    std::string firstPicture() const;

    // Bytes are missing: the present picture is dropped.
    void lose();

private:
    bool isComplete(std::size_t code) const;
    void take(std::size_t end);
    void lookAt(std::size_t code);
    void readSequence(std::string_view header);
    void readPicture(std::string_view header);
    void readExtension(std::string_view header);

    Take take_;
    std::string unit_;
    std::size_t searched_ = 0;  // the start codes before it were looked at
    std::size_t unitStart_ = 0; // always 0 between calls: where the present picture begins in unit_
    int rows_ = 0;              // of macroblocks in a whole picture; 0: not known
    int lastRow_ = 0;           // of the slices so far, from 1; 0: no slice has begun
    bool field_ = false;        // the picture is one of two fields
    bool key_ = false;
    bool keyed_ = false; // a key picture came
    bool damaged_ = false;
    bool shown_ = true;
};

} // namespace player
