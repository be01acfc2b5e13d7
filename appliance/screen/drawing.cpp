#include "appliance/screen/drawing.h"

#include "appliance/screen/store_file.h"
#include "appliance/screen/writer_lock.h"

#include <libcommon/clock.h>

#include <unistd.h>
#include <utility>

namespace screen {

Drawing::Drawing() = default;

Drawing::Drawing(std::shared_ptr<StoreFile> file, std::unique_ptr<WriterLock> lock, const PictureShape& shape)
    : file_(std::move(file)), lock_(std::move(lock)), shape_(shape), planes_(planesOf(shape)),
      number_(file_->newest() + 1) {
    file_->begin(number_, shape);
}

Drawing::Drawing(Drawing&&) noexcept = default;
Drawing::~Drawing() = default;

std::uint8_t* Drawing::plane(int i) const {
    const PlaneLayout& plane = planes_.at(static_cast<std::size_t>(i));
    return file_ == nullptr || plane.rows == 0 ? nullptr : file_->picture(number_) + plane.offset;
}

std::size_t Drawing::stride(int i) const {
    return planes_.at(static_cast<std::size_t>(i)).stride;
}

FrameInfo Drawing::commit(std::int32_t source) {
    if (file_ == nullptr)
        return {};
    StoreHeader& header = file_->header();
    const FrameInfo info{number_, gettimeusec(), getpid(), source};
    FrameSlot& slot = header.slot[number_ % slotCount];
    slot.time = info.time;
    slot.pid = info.pid;
    slot.source = info.source;
    slot.sequence.store(2 * number_, std::memory_order_release);
    FrameRecord& record = header.record[number_ % recordCount];
    record.number = 0;
    record.time = info.time;
    record.pid = info.pid;
    record.source = info.source;
    record.number.store(number_, std::memory_order_release);
    header.newestTime = info.time;
    header.newest.store(number_, std::memory_order_release);
    file_->announceChange();
    file_.reset();
    lock_.reset();
    return info;
}

} // namespace screen
