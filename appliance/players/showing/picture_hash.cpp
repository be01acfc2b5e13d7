#include "appliance/players/showing/picture_hash.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

namespace player {
namespace {

constexpr std::uint64_t factor = 0x9e3779b97f4a7c15;

// Four independent sums, so that the processor overlaps their multiplications.
class Mixer {
public:
    void add(const std::uint8_t* bytes, std::size_t count) {
        std::size_t at = 0;
        for (; at + 32 <= count; at += 32)
            for (std::size_t lane = 0; lane < lanes_.size(); ++lane)
                mix(lane, bytes + at + 8 * lane, 8);
        for (std::size_t lane = 0; at < count; at += 8, lane = (lane + 1) % lanes_.size())
            mix(lane, bytes + at, count - at < 8 ? count - at : 8);
    }
    std::uint64_t result() const {
        std::uint64_t sum = 0;
        for (const std::uint64_t lane : lanes_)
            sum = (std::rotl(sum, 23) ^ lane) * factor;
        return sum ^ (sum >> 32);
    }

private:
    void mix(std::size_t lane, const std::uint8_t* bytes, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, count);
        lanes_[lane] = (std::rotl(lanes_[lane], 29) ^ word) * factor;
    }
    std::array<std::uint64_t, 4> lanes_{1, 2, 3, 4};
};

} // namespace

std::uint64_t hashOf(const GstVideoFrame& picture) {
    Mixer mixer;
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&picture); ++plane) {
        gint components[GST_VIDEO_MAX_COMPONENTS];
        gst_video_format_info_component(picture.info.finfo, plane, components);
        const auto component = static_cast<guint>(components[0]);
        const auto* row = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&picture, plane));
        const auto bytes = static_cast<std::size_t>(GST_VIDEO_FRAME_COMP_WIDTH(&picture, component)) *
                           static_cast<std::size_t>(GST_VIDEO_FRAME_COMP_PSTRIDE(&picture, component));
        for (int y = 0; y < GST_VIDEO_FRAME_COMP_HEIGHT(&picture, component); ++y) {
            mixer.add(row, bytes);
            row += GST_VIDEO_FRAME_PLANE_STRIDE(&picture, plane);
        }
    }
    return mixer.result();
}

} // namespace player
