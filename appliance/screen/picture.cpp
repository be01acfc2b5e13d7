#include "appliance/screen/picture.h"

#include <libcommon/log.h>

#include <cairo.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace screen {

std::vector<std::uint8_t> pngOf(const Picture& picture) {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint32_t> pixels = picture.pixels;
    cairo_surface_t* surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels.data()), CAIRO_FORMAT_RGB24, picture.width(),
        picture.height(), picture.width() * 4);
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
