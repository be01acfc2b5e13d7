#include "appliance/players/showing/picture_copy.h"

#include "appliance/players/showing/interlaced.h"

#include <bit>
#include <cstring>

namespace player {
namespace {

constexpr std::uint64_t factor = 0x9e3779b97f4a7c15;

// Four independent sums, so that the processor overlaps their multiplications.
class Mixer {
public:
    void add(const std::uint8_t* bytes, std::size_t count) {
        std::array<std::uint64_t, 4> lanes = lanes_;
        std::size_t at = 0;
        for (; at + 32 <= count; at += 32)
            for (std::size_t lane = 0; lane < lanes.size(); ++lane)
                lanes[lane] = mixed(lanes[lane], bytes + at + 8 * lane, 8);
        for (std::size_t lane = 0; at < count; at += 8, lane = (lane + 1) % lanes.size())
            lanes[lane] = mixed(lanes[lane], bytes + at, count - at < 8 ? count - at : 8);
        lanes_ = lanes;
    }
    std::uint64_t result() const {
        std::uint64_t sum = 0;
        for (const std::uint64_t lane : lanes_)
            sum = (std::rotl(sum, 23) ^ lane) * factor;
        return sum ^ (sum >> 32);
    }

private:
    static std::uint64_t mixed(std::uint64_t lane, const std::uint8_t* bytes, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, count);
        return (std::rotl(lane, 29) ^ word) * factor;
    }
    std::array<std::uint64_t, 4> lanes_{1, 2, 3, 4};
};

} // namespace

std::uint64_t copyAndHash(const screen::PictureView& from, const PicturePlanes& to, bool smooth) {
    Mixer mixer;
    const screen::PlaneLayouts planes = screen::planesOf(from.shape);
    for (std::size_t i = 0; i < planes.size(); ++i) {
        for (int y = 0; y < planes[i].rows; ++y) {
            const auto row = static_cast<std::size_t>(y);
            const std::uint8_t* in = from.plane[i] + row * from.stride[i];
            mixer.add(in, planes[i].rowBytes);
            if (to.plane[i] == nullptr)
                continue;
            std::uint8_t* out = to.plane[i] + row * to.stride[i];
            if (smooth)
                smoothRow(from.plane[i], from.stride[i], planes[i].rows, y, planes[i].rowBytes, out);
            else
                std::memcpy(out, in, planes[i].rowBytes);
        }
    }
    return mixer.result();
}

} // namespace player
