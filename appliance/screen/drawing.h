// A picture being drawn into the frame store.
#pragma once

#include "appliance/screen/frame.h"
#include "appliance/screen/picture_shape.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace screen {

class StoreFile;
class WriterLock;

// A picture being drawn, in the store's own memory. Readers see it after commit(). It holds the writers' lock,
// so fill it and commit it without doing anything else in between. Without commit() the picture is dropped.
class Drawing {
public:
    Drawing(Drawing&& other) noexcept;
    Drawing& operator=(Drawing&&) = delete;
    ~Drawing();

    explicit operator bool() const { return file_ != nullptr; } // false: there is no memory to draw in
    const PictureShape& shape() const { return shape_; }
    std::uint8_t* plane(int i) const; // not cleared: fill all of its rows; null: there is no such plane
    std::size_t stride(int i) const;  // bytes from one row to the next; 0: there is no such plane

    // Publishes the picture and wakes the waiting readers. Returns its record; number 0 on failure.
    FrameInfo commit(std::int32_t source);

private:
    friend class FrameStore;
    Drawing();
    Drawing(std::shared_ptr<StoreFile> file, std::unique_ptr<WriterLock> lock, const PictureShape& shape);

    std::shared_ptr<StoreFile> file_;
    std::unique_ptr<WriterLock> lock_;
    PictureShape shape_;
    PlaneLayouts planes_;
    std::uint64_t number_ = 0;
};

} // namespace screen
