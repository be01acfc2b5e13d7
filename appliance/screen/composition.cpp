#include "appliance/screen/composition.h"

#include "appliance/screen/text_layer.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace screen {

namespace {

// Copies a BGRx picture into one of another size, centred. What does not fit is cut; the rest stays black. Pictures
// in other formats are not copied.
void copyCentred(const PictureView& from, Picture& to) {
    if (from.shape.format != PixelFormat::bgrx || from.plane[0] == nullptr)
        return;
    const int width = std::min(from.shape.width, to.width);
    const int height = std::min(from.shape.height, to.height);
    for (int y = 0; y < height; ++y) {
        const int fromY = (from.shape.height - height) / 2 + y;
        const int toY = (to.height - height) / 2 + y;
        const std::uint8_t* row = from.plane[0] + static_cast<std::size_t>(fromY) * from.stride[0] +
                                  std::size_t(4) * static_cast<std::size_t>((from.shape.width - width) / 2);
        std::memcpy(&to.pixels[static_cast<std::size_t>(toY) * static_cast<std::size_t>(to.width) +
                               static_cast<std::size_t>((to.width - width) / 2)],
                    row, std::size_t(4) * static_cast<std::size_t>(width));
    }
}

} // namespace

Composer::Composer() : Composer(FrameStore()) {}
Composer::Composer(FrameStore store) : store_(std::move(store)), text_(std::make_unique<TextLayer>()) {}
Composer::Composer(Composer&&) noexcept = default;
Composer::~Composer() = default;

const Picture& Composer::compose() {
    // Read the texts before the frame: a text that was set together with a blanking then never appears over the
    // frame before the blanking.
    ScreenText text;
    for (int line = 0; line < libcommon::osdLines; ++line)
        text[static_cast<std::size_t>(line)] = libcommon::osdText(line);
    const bool any = store_.newest(frame_);
    const std::int64_t blankedAt = std::max(libcommon::osdBlankTime(), store_.blankedAt());
    return compose(any ? &frame_ : nullptr, store_.mode(), blankedAt, text);
}

const Picture& Composer::compose(const Frame* frame, VideoMode mode, std::int64_t blankedAt,
                                 const ScreenText& text) {
    picture_.info = frame == nullptr ? FrameInfo{} : frame->info;
    picture_.mode = mode;
    picture_.width = formatOf(mode).width;
    picture_.height = formatOf(mode).height;
    picture_.blanked = frame == nullptr || frame->info.time <= blankedAt;
    const auto pixels = static_cast<std::size_t>(picture_.width) * static_cast<std::size_t>(picture_.height);
    picture_.pixels.assign(pixels, 0);
    if (!picture_.blanked)
        copyCentred(frame->view(), picture_);
    text_->update(text, picture_.width, picture_.height);
    text_->layOver(picture_);
    return picture_;
}

std::uint64_t Composer::wait(std::uint64_t seen, int timeoutMs) {
    return store_.wait(seen, timeoutMs);
}

std::vector<std::uint8_t> pngOf(const Picture& picture) {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint32_t> pixels = picture.pixels;
    cairo_surface_t* surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels.data()), CAIRO_FORMAT_RGB24, picture.width, picture.height,
        picture.width * 4);
    const auto append = [](void* to, const unsigned char* data, unsigned length) {
        auto& out = *static_cast<std::vector<std::uint8_t>*>(to);
        out.insert(out.end(), data, data + length);
        return CAIRO_STATUS_SUCCESS;
    };
    const cairo_status_t status = cairo_surface_write_to_png_stream(surface, append, &bytes);
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
        logmsg(3, "Can't write the picture as PNG: %s", cairo_status_to_string(status));
        bytes.clear();
    }
    return bytes;
}

bool writePng(const Picture& picture, const std::string& path) {
    const std::vector<std::uint8_t> bytes = pngOf(picture);
    if (bytes.empty()) {
        errno = EINVAL;
        return false;
    }
    std::FILE* file = std::fopen(path.c_str(), "wbe");
    bool good = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    int error = errno;
    // Only a regular file is removed, not a device or a pipe.
    struct stat info {};
    const bool ours = file != nullptr && fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);
    if (file != nullptr && std::fclose(file) != 0) {
        error = errno;
        good = false;
    }
    if (!good) {
        if (ours)
            unlink(path.c_str());
        logmsg(3, "Can't write %s (errno=%d %s)", path.c_str(), error, std::strerror(error));
        errno = error;
    }
    return good;
}

} // namespace screen
