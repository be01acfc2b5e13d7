// Makes the pictures of the screen for the pages: one JPEG for all of them.
//
// A thread of low priority composes the screen as the monitor does, in a small size, while somebody looks. Without viewers
// it only takes a still of what shows: a second after a change of the source, and then every ten seconds.
//
// The rate follows the machine (PictureRate). It is a picture a second while no picture was fetched for some time: then all
// pages are hidden, or their connections are too slow. A picture is made only when there is something new to see.
#pragma once

#include "appliance/jpeg/jpeg.h"
#include "appliance/panel/pictures/stills.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace panel {

struct MadePicture {
    std::uint64_t number = 0; // of the panel's pictures, from 1 on; 0: none
    int width = 0;
    int height = 0;
    bool blank = true;       // no frame shows
    int source = -1;         // of the frame
    std::uint64_t frame = 0; // its number in the frame store
    std::int64_t time = 0;   // when the frame was drawn, gettimeusec()'s clock
    JpegPtr jpeg;
};

struct PictureSettings {
    double mostPerSecond = 12;
    int mostWidth = 960; // pixels; the height follows
};

class PictureMaker {
public:
    struct News {
        std::function<void(const MadePicture&)> picture; // there is a new one; on the maker's thread
        std::function<void()> still;                     // there is a still to tell; on the maker's thread
    };
    // `settings` is asked about once a second, on the maker's thread.
    PictureMaker(News news, std::function<PictureSettings()> settings);
    ~PictureMaker(); // ends the thread, within half a second
    PictureMaker(const PictureMaker&) = delete;
    PictureMaker& operator=(const PictureMaker&) = delete;

    // All of these: any thread.
    void setViewers(std::size_t viewers);
    void fetched();       // a viewer has fetched a picture: go on at the full rate
    void sourceChanged(); // another source shows

    // The picture with that number, or the newest one; its number is 0 when there is none.
    MadePicture picture(std::uint64_t number) const;

    const Stills& stills() const;
    std::uint64_t made() const;  // pictures so far
    double secondsSpent() const; // with making them

private:
    class Thread;
    std::unique_ptr<Thread> thread_;
};

} // namespace panel
