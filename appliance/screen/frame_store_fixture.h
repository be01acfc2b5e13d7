// A frame store in a temporary folder, and pictures that show whether they are whole.
#pragma once

#include "appliance/screen/frame_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace screen {

namespace fs = std::filesystem;

class FrameStoreFixture : public testing::Test {
protected:
    FrameStoreFixture() {
        std::string folder = parentFolder() + "/frame-store-XXXXXX";
        root = mkdtemp(folder.data());
        setenv("LIBCOMMON_LOG", "stderr", 1); // the first line of a process chooses the place of its log
        path = root / "run/decoder/screen/frames";
    }
    ~FrameStoreFixture() override { fs::remove_all(root); }

    // Memory, as /run is, where there is enough of it: replacing files is slow on a busy disk.
    static std::string parentFolder() {
        struct statvfs room {};
        const bool enough = statvfs("/dev/shm", &room) == 0 && room.f_bavail * room.f_frsize > (1ULL << 30);
        return enough && access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    }

    static PictureShape shaped(int width, int height, PixelFormat format = PixelFormat::i420) {
        PictureShape shape;
        shape.width = width;
        shape.height = height;
        shape.format = format;
        return shape;
    }

    // The content of a row of the picture with that seed, at most 4 * maxPictureSide bytes. Each row of each picture
    // is different, so a picture with a row of another one is found.
    static const std::uint8_t* rowOf(int seed, std::size_t plane, int row) {
        static const std::vector<std::uint8_t> noise = [] {
            std::vector<std::uint8_t> bytes(65'536 + 4 * maxPictureSide);
            std::mt19937 random(4711);
            for (std::uint8_t& byte : bytes)
                byte = static_cast<std::uint8_t>(random());
            return bytes;
        }();
        const auto number = static_cast<unsigned>(seed) * 7919U + static_cast<unsigned>(plane) * 21'001U +
                            static_cast<unsigned>(row) * 13U;
        return &noise[number % 65'536U];
    }

    static void fill(const Drawing& drawing, int seed) {
        const PlaneLayouts planes = planesOf(drawing.shape());
        for (std::size_t i = 0; i < planes.size(); ++i)
            for (int row = 0; row < planes[i].rows; ++row)
                std::memcpy(drawing.plane(static_cast<int>(i)) +
                                static_cast<std::size_t>(row) * drawing.stride(static_cast<int>(i)),
                            rowOf(seed, i, row), planes[i].rowBytes);
    }

    // Whether the picture is the whole one with that seed.
    static bool isWhole(const PictureView& picture, int seed) {
        const PlaneLayouts planes = planesOf(picture.shape);
        for (std::size_t i = 0; i < planes.size(); ++i)
            for (int row = 0; row < planes[i].rows; ++row)
                if (std::memcmp(picture.plane[i] + static_cast<std::size_t>(row) * picture.stride[i],
                                rowOf(seed, i, row), planes[i].rowBytes) != 0)
                    return false;
        return true;
    }
    static bool isWhole(const Frame& frame) { return isWhole(frame.view(), frame.info.source); }

    // Draws the picture with that seed, which is also its source.
    static FrameInfo drawSeeded(FrameStore& store, const PictureShape& shape, int seed) {
        Drawing drawing = store.draw(shape);
        if (!drawing)
            return {};
        fill(drawing, seed);
        return drawing.commit(seed);
    }

    FrameInfo drawOnce(int seed = 1, const PictureShape& shape = televisionShape(VideoMode::pal)) const {
        FrameStore store(path);
        return drawSeeded(store, shape, seed);
    }
    std::string content() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    void write(const std::string& bytes) const {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }

    fs::path root;
    fs::path path;
};

} // namespace screen
