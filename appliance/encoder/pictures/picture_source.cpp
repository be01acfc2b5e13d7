#include "appliance/encoder/pictures/picture_source.h"

#include <utility>

using std::chrono::steady_clock;

void PictureSource::stopReaders() {
    const std::lock_guard lock(mutex_);
    readersStopped_ = true;
    changed_.notify_all();
}

void PictureSource::publish(PicturePtr picture) {
    const std::lock_guard lock(mutex_);
    newest_ = std::move(picture);
    changed_.notify_all();
}

// Drops the picture from before the pause, so that the next reader does not get it.
void PictureSource::dropNewest() {
    newest_.reset();
}

Subscription::Subscription(PictureSource& source) : source_(source) {
    const std::lock_guard lock(source_.mutex_);
    ++source_.readers_;
    source_.changed_.notify_all();
}

Subscription::~Subscription() {
    const std::lock_guard lock(source_.mutex_);
    --source_.readers_;
}

PicturePtr Subscription::next(std::chrono::milliseconds timeout) {
    std::unique_lock lock(source_.mutex_);
    source_.changed_.wait_for(lock, timeout, [this] {
        return source_.readersStopped_ || (source_.newest_ && source_.newest_->number != lastNumber_);
    });
    if (source_.readersStopped_ || !source_.newest_ || source_.newest_->number == lastNumber_)
        return nullptr;
    lastNumber_ = source_.newest_->number;
    return source_.newest_;
}

void DrawnSource::startDrawing() {
    thread_ = std::thread(&DrawnSource::run, this);
}

void DrawnSource::stopDrawing() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void DrawnSource::run() {
    const auto start = steady_clock::now();
    const std::chrono::nanoseconds interval(1000000000 / fps_);
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        dropNewest();
        changed_.wait(lock, [this] { return stopping_ || readers_ > 0; });
        lock.unlock();
        beginActive();
        lock.lock();
        while (!stopping_ && readers_ > 0) {
            const auto now = steady_clock::now();
            const std::int64_t number = (now - start) / interval + 1;
            lock.unlock();
            auto picture = std::make_shared<Picture>();
            picture->number = static_cast<std::uint64_t>(number);
            picture->time = now.time_since_epoch().count();
            draw(*picture, picture->number);
            publish(std::move(picture));
            lock.lock();
            changed_.wait_until(lock, start + number * interval, [this] { return stopping_; });
        }
        lock.unlock();
        endActive();
        lock.lock();
    }
}
