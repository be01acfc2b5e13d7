// Draws with the graphics processor, through SDL's renderer.
#include "appliance/screen/colour_conversion.h"
#include "appliance/screen/monitor/back_end.h"

#include <libcommon/log.h>

#include <cstring>
#include <SDL.h>

namespace screen {
namespace {

struct FreeTexture {
    void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
};
struct FreeRenderer {
    void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
};
using Texture = std::unique_ptr<SDL_Texture, FreeTexture>;

struct OverlayTexture {
    Texture texture;
    std::uint64_t version = 0;
};

// The textures of a part.
struct Tile {
    Texture picture;
    PictureShape shape;      // of the texture
    std::uint64_t frame = 0; // in the texture; 0: none
    std::vector<OverlayTexture> overlays;
    std::vector<std::uint32_t> converted; // of a picture in colours that the renderer doesn't know
};

// The renderer knows full range in BT.601 only.
bool isKnown(const PictureShape& shape) {
    return shape.format == PixelFormat::bgrx || !shape.fullRange || shape.matrix == ColourMatrix::bt601;
}

std::uint32_t textureFormat(const PictureShape& shape) {
    if (!isKnown(shape))
        return SDL_PIXELFORMAT_ARGB8888;
    switch (shape.format) {
    case PixelFormat::bgrx:
        break;
    case PixelFormat::i420:
        return SDL_PIXELFORMAT_IYUV;
    case PixelFormat::nv12:
        return SDL_PIXELFORMAT_NV12;
    }
    return SDL_PIXELFORMAT_XRGB8888;
}

SDL_YUV_CONVERSION_MODE conversionOf(const PictureShape& shape) {
    if (shape.fullRange)
        return SDL_YUV_CONVERSION_JPEG;
    return shape.matrix == ColourMatrix::bt709 ? SDL_YUV_CONVERSION_BT709 : SDL_YUV_CONVERSION_BT601;
}

SDL_FRect toSdl(const Rectangle& rectangle) {
    return {static_cast<float>(rectangle.x), static_cast<float>(rectangle.y),
            static_cast<float>(rectangle.width), static_cast<float>(rectangle.height)};
}

// SDL's blending wants colours that are not multiplied with their opacity.
std::vector<std::uint32_t> straight(const std::vector<std::uint32_t>& pixels) {
    std::vector<std::uint32_t> result(pixels.size());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const std::uint32_t alpha = pixels[i] >> 24;
        std::uint32_t pixel = alpha << 24;
        for (const unsigned shift : {0U, 8U, 16U})
            if (alpha != 0)
                pixel |= std::min(255U, (((pixels[i] >> shift) & 255U) * 255U + alpha / 2) / alpha) << shift;
        result[i] = pixel;
    }
    return result;
}

class GpuBackEnd : public BackEnd {
public:
    explicit GpuBackEnd(SDL_Renderer* renderer) : renderer_(renderer) {}
    Drawn show(const std::vector<Part>& parts, bool whole) override;

private:
    bool load(const Part& part, Tile& tile, bool& good);
    bool makeTexture(const PictureShape& shape, Tile& tile);
    bool upload(const PictureView& view, Tile& tile);
    void loadOverlays(const Look& look, Tile& tile);
    void draw(const Part& part, Tile& tile);
    void drawPicture(const Part& part, Tile& tile);
    bool failed(const char* what);

    std::unique_ptr<SDL_Renderer, FreeRenderer> renderer_; // must outlive the textures
    std::vector<Tile> tiles_;
};

bool GpuBackEnd::failed(const char* what) {
    logmsg(3, "%s: %s", what, SDL_GetError());
    return false;
}

bool GpuBackEnd::makeTexture(const PictureShape& shape, Tile& tile) {
    if (tile.picture != nullptr && tile.shape == shape)
        return true;
    tile.picture.reset(SDL_CreateTexture(renderer_.get(), textureFormat(shape), SDL_TEXTUREACCESS_STREAMING,
                                         shape.width, shape.height));
    tile.shape = shape;
    tile.frame = 0;
    if (tile.picture == nullptr)
        return failed("The graphics processor has no place for the picture");
    SDL_SetTextureScaleMode(tile.picture.get(), SDL_ScaleModeLinear);
    return true;
}

bool GpuBackEnd::upload(const PictureView& view, Tile& tile) {
    const auto pitch = [&](std::size_t plane) { return static_cast<int>(view.stride[plane]); };
    SDL_Texture* texture = tile.picture.get();
    int result = 0;
    if (!isKnown(view.shape)) {
        const auto width = static_cast<std::size_t>(view.shape.width);
        tile.converted.resize(width * static_cast<std::size_t>(view.shape.height));
        ColourConversion conversion(view, 0, 0, view.shape.width);
        for (int y = 0; y < view.shape.height; ++y)
            conversion.row(y, tile.converted.data() + width * static_cast<std::size_t>(y));
        for (std::uint32_t& pixel : tile.converted)
            pixel |= 0xff000000U;
        result = SDL_UpdateTexture(texture, nullptr, tile.converted.data(), static_cast<int>(4 * width));
    } else if (view.shape.format == PixelFormat::i420) {
        result = SDL_UpdateYUVTexture(texture, nullptr, view.plane[0], pitch(0), view.plane[1], pitch(1),
                                      view.plane[2], pitch(2));
    } else if (view.shape.format == PixelFormat::nv12) {
        result = SDL_UpdateNVTexture(texture, nullptr, view.plane[0], pitch(0), view.plane[1], pitch(1));
    } else {
        result = SDL_UpdateTexture(texture, nullptr, view.plane[0], pitch(0));
    }
    return result == 0 || failed("The picture does not reach the graphics processor");
}

void GpuBackEnd::loadOverlays(const Look& look, Tile& tile) {
    const std::size_t count = look.overlays == nullptr ? 0 : look.overlays->size();
    tile.overlays.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const OverlayImage& image = (*look.overlays)[i];
        OverlayTexture& loaded = tile.overlays[i];
        if (loaded.version == image.version)
            continue;
        loaded.version = image.version;
        loaded.texture.reset(SDL_CreateTexture(renderer_.get(), SDL_PIXELFORMAT_ARGB8888,
                                               SDL_TEXTUREACCESS_STATIC, image.at.width, image.at.height));
        const std::vector<std::uint32_t> pixels = straight(image.pixels);
        if (loaded.texture == nullptr ||
            SDL_UpdateTexture(loaded.texture.get(), nullptr, pixels.data(), 4 * image.at.width) != 0) {
            failed("A text does not reach the graphics processor");
            continue;
        }
        SDL_SetTextureBlendMode(loaded.texture.get(), SDL_BLENDMODE_BLEND);
        SDL_SetTextureScaleMode(loaded.texture.get(), SDL_ScaleModeLinear);
    }
}

// Brings what is new into the textures. False when the frame was overwritten meanwhile; `good`: the driver works.
bool GpuBackEnd::load(const Part& part, Tile& tile, bool& good) {
    const Look& look = *part.look;
    loadOverlays(look, tile);
    if (look.blanked || (tile.frame == look.info.number && tile.shape == look.shape))
        return true;
    SDL_SetYUVConversionMode(conversionOf(look.shape));
    if (!makeTexture(look.shape, tile)) {
        good = false;
        return true;
    }
    tile.frame = 0;
    if (!part.visit([&](const PictureView& view) {
            if (view.shape == look.shape)
                good = upload(view, tile);
        }))
        return false;
    tile.frame = look.info.number;
    return true;
}

// A turned picture is given as the rectangle that becomes its place by turning around its centre.
void GpuBackEnd::drawPicture(const Part& part, Tile& tile) {
    const Placing& placing = part.look->placing;
    SDL_FRect to = toSdl(inWindow(part, placing.to));
    if (swapsSides(placing.turn))
        to = {to.x + (to.w - to.h) / 2, to.y + (to.h - to.w) / 2, to.h, to.w};
    const Rectangle& cut = placing.from;
    const SDL_Rect from{cut.x, cut.y, cut.width, cut.height};
    const double angle = 90.0 * static_cast<double>(placing.turn);
    SDL_SetYUVConversionMode(conversionOf(tile.shape));
    SDL_RenderCopyExF(renderer_.get(), tile.picture.get(), &from, &to, angle, nullptr, SDL_FLIP_NONE);
}

void GpuBackEnd::draw(const Part& part, Tile& tile) {
    const SDL_Rect place{part.at.x, part.at.y, part.at.width, part.at.height};
    SDL_RenderSetClipRect(renderer_.get(), &place);
    if (!part.look->blanked && tile.picture != nullptr)
        drawPicture(part, tile);
    for (std::size_t i = 0; i < tile.overlays.size(); ++i) {
        const SDL_FRect to = toSdl(inWindow(part, (*part.look->overlays)[i].at));
        if (tile.overlays[i].texture != nullptr)
            SDL_RenderCopyF(renderer_.get(), tile.overlays[i].texture.get(), nullptr, &to);
    }
}

Drawn GpuBackEnd::show(const std::vector<Part>& parts, bool whole) {
    if (whole)
        SDL_RenderSetViewport(renderer_.get(), nullptr);
    tiles_.resize(parts.size());
    bool good = true;
    for (std::size_t i = 0; i < parts.size(); ++i)
        if (!load(parts[i], tiles_[i], good))
            return Drawn::stale;
    SDL_RenderSetClipRect(renderer_.get(), nullptr);
    SDL_SetRenderDrawColor(renderer_.get(), 0, 0, 0, 255);
    good = SDL_RenderClear(renderer_.get()) == 0 && good;
    for (std::size_t i = 0; i < parts.size(); ++i)
        draw(parts[i], tiles_[i]);
    SDL_RenderPresent(renderer_.get());
    return good ? Drawn::shown : Drawn::failed;
}

} // namespace

std::unique_ptr<BackEnd> makeGpuBackEnd(SDL_Window* window, std::string& reason) {
    SDL_Renderer* renderer =
        SDL_CreateRenderer(window, -1, SDL_RENDERER_ACCELERATED | SDL_RENDERER_PRESENTVSYNC);
    if (renderer == nullptr) {
        reason = SDL_GetError();
        return nullptr;
    }
    return std::make_unique<GpuBackEnd>(renderer);
}

} // namespace screen
