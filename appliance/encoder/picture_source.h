// A source of pictures: an input of the encoder, or the quad view of four of them.
//
// A source keeps its newest picture only. Readers hold a Subscription, on whatever thread, and take the
// newest picture each time they are ready for one: a slow reader misses pictures and holds nobody up. Where
// pictures are made on purpose (test pictures, the quad view) they are made only while somebody reads; a new
// reader's first picture is there at once all the same.
#pragma once

#include "appliance/encoder/picture.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

class PictureSource {
public:
    PictureSource() = default;
    virtual ~PictureSource() = default;
    PictureSource(const PictureSource&) = delete;
    PictureSource& operator=(const PictureSource&) = delete;

    // Nominal; the quad view and test pictures keep it, cameras and files about so.
    virtual int fps() const = 0;

    // Ends every wait for a picture, now and later.
    void stopReaders();

protected:
    friend class Subscription;

    void publish(PicturePtr picture);
    void dropNewest();

    std::mutex mutex_;
    std::condition_variable changed_;
    PicturePtr newest_;
    int readers_ = 0;
    bool readersStopped_ = false;
};

class Subscription {
public:
    explicit Subscription(PictureSource& source);
    ~Subscription();
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    // The newest picture if it was not given before, else the next one. Null when none came within `timeout`,
    // or when readers are stopped.
    PicturePtr next(std::chrono::milliseconds timeout);

    PictureSource& source() const { return source_; }

private:
    PictureSource& source_;
    std::uint64_t lastNumber_ = 0;
};

// A source that draws its pictures itself, at a steady rate, on a thread of its own. The numbers go on while
// nobody reads, so that a counter tells the time.
class DrawnSource : public PictureSource {
public:
    explicit DrawnSource(int fps) : fps_(fps) {}
    int fps() const override { return fps_; }

protected:
    // To be called at the end of the constructor, and at the beginning of the destructor, of the class that
    // draws.
    void startDrawing();
    void stopDrawing();

    // Draws picture `number`; runs on the source's thread. `active` turns true at the first picture after a
    // pause.
    virtual void draw(Picture& picture, std::uint64_t number) = 0;
    // Runs on the source's thread before the first picture, and after the last one, of a time with readers.
    virtual void beginActive() {}
    virtual void endActive() {}

private:
    void run();

    const int fps_;
    std::thread thread_;
    bool stopping_ = false; // guarded by mutex_
};
