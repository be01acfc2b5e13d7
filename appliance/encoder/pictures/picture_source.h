// A source of pictures: an input of the encoder, or the quad view of four of them.
//
// A source keeps only its newest picture. A reader has a Subscription, on any thread, and takes the newest picture when
// it is ready for one: a slow reader misses pictures and delays no other reader. Test pictures and the quad view are
// drawn only while there are readers; the first picture for a new reader is drawn at once.
#pragma once

#include "appliance/encoder/pictures/raw_picture.h"

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

    // The nominal rate. Test pictures and the quad view keep it; cameras and files only roughly.
    virtual int fps() const = 0;

    // Ends every wait for a picture, now and later. Any thread.
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

    // The newest picture if it was not returned before, else the next one. Null if none came within `timeout` or
    // readers are stopped.
    PicturePtr next(std::chrono::milliseconds timeout);

    PictureSource& source() const { return source_; }

private:
    PictureSource& source_;
    std::uint64_t lastNumber_ = 0;
};

// A source that draws its pictures itself, at a steady rate, on its own thread. Picture numbers follow the clock, also
// while there are no readers.
class DrawnSource : public PictureSource {
public:
    explicit DrawnSource(int fps) : fps_(fps) {}
    int fps() const override { return fps_; }

protected:
    // A derived class calls these at the end of its constructor and at the beginning of its destructor.
    void startDrawing();
    void stopDrawing();

    // Draws picture `number`. Runs on the source's thread.
    virtual void draw(Picture& picture, std::uint64_t number) = 0;
    // Run on the source's thread when the first reader has come and when the last one has gone.
    virtual void beginActive() {}
    virtual void endActive() {}

private:
    void run();

    const int fps_;
    std::thread thread_;
    bool stopping_ = false; // guarded by mutex_
};
