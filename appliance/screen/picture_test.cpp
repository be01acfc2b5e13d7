#include "appliance/screen/picture.h"

#include "appliance/screen/appliance_root_fixture.h"

#include <cairo.h>
#include <cerrno>

namespace screen {
namespace {

namespace fs = std::filesystem;

Picture colourful() {
    Picture picture;
    picture.screen = {{31, 17}, 1, 1};
    for (std::uint32_t i = 0; i < 31 * 17; ++i)
        picture.pixels.push_back(i * 0x010307 & 0xffffff);
    return picture;
}

class PictureFile : public ApplianceRoot {};

TEST_F(PictureFile, PngHoldsThePicture) {
    const Picture picture = colourful();
    const fs::path path = root / "picture.png";
    ASSERT_TRUE(writePng(picture, path));
    cairo_surface_t* read = cairo_image_surface_create_from_png(path.c_str());
    ASSERT_EQ(cairo_surface_status(read), CAIRO_STATUS_SUCCESS);
    ASSERT_EQ(cairo_image_surface_get_width(read), picture.width());
    ASSERT_EQ(cairo_image_surface_get_height(read), picture.height());
    const auto* pixels = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(read));
    for (std::size_t i = 0; i < picture.pixels.size(); ++i)
        ASSERT_EQ(pixels[i] & 0xffffff, picture.pixels[i]) << "pixel " << i;
    cairo_surface_destroy(read);
}

TEST_F(PictureFile, PngThatCannotBeWrittenIsAClearFailure) {
    const Picture picture = colourful();
    errno = 0;
    EXPECT_FALSE(writePng(picture, root / "missing" / "picture.png"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(writePng(picture, root));
    if (fs::exists("/dev/full")) {
        EXPECT_FALSE(writePng(picture, "/dev/full"));
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_TRUE(fs::exists("/dev/full")) << "a device was removed";
    }
}

} // namespace
} // namespace screen
