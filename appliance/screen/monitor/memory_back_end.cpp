// Paints on the CPU into the window's surface.
#include "appliance/screen/monitor/back_end.h"
#include "appliance/screen/painter.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cstring>
#include <SDL.h>

extern "C" {
#include <libswscale/swscale.h>
}

namespace screen {
namespace {

struct FreeSurface {
    void operator()(SDL_Surface* surface) const { SDL_FreeSurface(surface); }
};
struct FreeScaler {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

// What the back end knows about a part from the last call.
struct Tile {
    PartMark mark;
    std::vector<Rectangle> overlays; // on the look's screen
    Picture picture;
    std::unique_ptr<SwsContext, FreeScaler> scaler; // for a screen that has another size than its place
    Size scalerFrom;
    Size scalerTo;
};

SDL_Rect toSdl(const Rectangle& rectangle) {
    return {rectangle.x, rectangle.y, rectangle.width, rectangle.height};
}

class MemoryBackEnd : public BackEnd {
public:
    explicit MemoryBackEnd(SDL_Window* window) : window_(window) {}
    Drawn show(const std::vector<Part>& parts, bool whole) override;

private:
    bool prepare(bool& whole);
    bool paint(const Part& part, Tile& tile);
    void scale(const Part& part, Tile& tile);
    void collect(const Part& part, Tile& tile, bool whole);
    bool update(bool whole);
    std::uint32_t* pixelsAt(int x, int y) const;

    SDL_Window* window_;
    Painter painter_;
    SDL_Surface* surface_ = nullptr; // of the window; owned by SDL
    // Painted instead of a surface whose pixels are not 0x00RRGGBB.
    std::unique_ptr<SDL_Surface, FreeSurface> shadow_;
    SDL_Surface* canvas_ = nullptr; // one of the two
    std::vector<Tile> tiles_;
    std::vector<SDL_Rect> changed_; // since the window was updated
    bool whole_ = false;            // likewise: everything
};

// Gets the window's surface, which is another one after a change of its size.
bool MemoryBackEnd::prepare(bool& whole) {
    SDL_Surface* surface = SDL_GetWindowSurface(window_);
    if (surface == nullptr) {
        logmsg(3, "The window has no surface to paint on: %s", SDL_GetError());
        return false;
    }
    const bool plain = surface->format->BytesPerPixel == 4 && surface->format->Rmask == 0xff0000 &&
                       surface->format->Gmask == 0xff00 && surface->format->Bmask == 0xff;
    const Size size{surface->w, surface->h};
    if (!plain && (shadow_ == nullptr || shadow_->w != size.width || shadow_->h != size.height)) {
        shadow_.reset(
            SDL_CreateRGBSurfaceWithFormat(0, size.width, size.height, 32, SDL_PIXELFORMAT_XRGB8888));
        whole = true;
        if (shadow_ == nullptr) {
            logmsg(3, "No memory for the picture: %s", SDL_GetError());
            return false;
        }
    }
    whole = whole || surface != surface_;
    surface_ = surface;
    canvas_ = plain ? surface : shadow_.get();
    return true;
}

std::uint32_t* MemoryBackEnd::pixelsAt(int x, int y) const {
    auto* row = static_cast<std::uint8_t*>(canvas_->pixels) + static_cast<std::ptrdiff_t>(y) * canvas_->pitch;
    return reinterpret_cast<std::uint32_t*>(row) + x;
}

// Scales the painted screen to its place.
void MemoryBackEnd::scale(const Part& part, Tile& tile) {
    const Size from = part.look->screen.size;
    const Size to{part.at.width, part.at.height};
    const auto* pixels = reinterpret_cast<const std::uint8_t*>(tile.picture.pixels.data());
    if (tile.scaler == nullptr || tile.scalerFrom != from || tile.scalerTo != to)
        tile.scaler.reset(sws_getContext(from.width, from.height, AV_PIX_FMT_BGR0, to.width, to.height,
                                         AV_PIX_FMT_BGR0, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    tile.scalerFrom = from;
    tile.scalerTo = to;
    const int stride = 4 * from.width;
    auto* target = reinterpret_cast<std::uint8_t*>(pixelsAt(part.at.x, part.at.y));
    if (tile.scaler == nullptr ||
        sws_scale(tile.scaler.get(), &pixels, &stride, 0, from.height, &target, &canvas_->pitch) != to.height)
        logmsg(3, "A screen of %dx%d can't be scaled to %dx%d", from.width, from.height, to.width, to.height);
}

// False when the frame was overwritten meanwhile.
bool MemoryBackEnd::paint(const Part& part, Tile& tile) {
    const Look& look = *part.look;
    const bool scaled = look.screen.size != Size{part.at.width, part.at.height};
    const auto paintOne = [&](const PictureView* view) {
        if (scaled)
            painter_.paint(view, look, tile.picture);
        else
            painter_.paint(view, look, pixelsAt(part.at.x, part.at.y),
                           static_cast<std::size_t>(canvas_->pitch));
    };
    if (look.blanked)
        paintOne(nullptr);
    else if (!part.visit([&](const PictureView& view) { paintOne(&view); }))
        return false;
    if (scaled)
        scale(part, tile);
    return true;
}

// Notes which rectangles of the window have changed.
void MemoryBackEnd::collect(const Part& part, Tile& tile, bool whole) {
    const PartMark mark = markOf(part);
    const PartMark& old = tile.mark;
    const bool sameFrame = old.frame == mark.frame && old.shape == mark.shape;
    const bool moved = whole || old.at != mark.at || old.screen != mark.screen ||
                       old.placing != mark.placing || (old.frame == 0) != (mark.frame == 0);
    std::vector<Rectangle> rectangles;
    if (moved)
        rectangles.push_back({0, 0, mark.screen.size.width, mark.screen.size.height});
    else if (!sameFrame)
        rectangles.push_back(mark.placing.to);
    std::vector<Rectangle> overlays;
    if (part.look->overlays != nullptr)
        for (const OverlayImage& image : *part.look->overlays)
            overlays.push_back(image.at);
    if (!moved && old.overlays != mark.overlays) {
        rectangles.insert(rectangles.end(), tile.overlays.begin(), tile.overlays.end());
        rectangles.insert(rectangles.end(), overlays.begin(), overlays.end());
    }
    const SDL_Rect all{0, 0, canvas_->w, canvas_->h};
    for (const Rectangle& rectangle : rectangles) {
        const SDL_Rect inside = toSdl(inWindow(part, rectangle));
        SDL_Rect visible;
        if (SDL_IntersectRect(&inside, &all, &visible) == SDL_TRUE)
            changed_.push_back(visible);
    }
    tile.mark = mark;
    tile.overlays = std::move(overlays);
}

bool MemoryBackEnd::update(bool whole) {
    if (whole)
        changed_.assign(1, {0, 0, canvas_->w, canvas_->h});
    if (canvas_ != surface_)
        for (SDL_Rect& rectangle : changed_)
            SDL_BlitSurface(canvas_, &rectangle, surface_, &rectangle);
    if (changed_.empty() ||
        SDL_UpdateWindowSurfaceRects(window_, changed_.data(), static_cast<int>(changed_.size())) == 0)
        return true;
    logmsg(3, "The picture can't be shown: %s", SDL_GetError());
    return false;
}

Drawn MemoryBackEnd::show(const std::vector<Part>& parts, bool whole) {
    if (!prepare(whole))
        return Drawn::failed;
    // After a stale frame the next call goes on where this one ended.
    whole = whole || whole_ || tiles_.size() != parts.size();
    whole_ = whole;
    if (whole) {
        SDL_FillRect(canvas_, nullptr, 0);
        tiles_.resize(parts.size());
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const Part& part = parts[i];
        Tile& tile = tiles_[i];
        if (!whole && tile.mark == markOf(part))
            continue;
        if (part.at.x < 0 || part.at.y < 0 || part.at.width < 1 || part.at.height < 1 ||
            part.at.x + part.at.width > canvas_->w || part.at.y + part.at.height > canvas_->h)
            continue; // the window became smaller since the parts were placed
        if (!paint(part, tile))
            return Drawn::stale;
        collect(part, tile, whole);
    }
    const bool good = update(whole);
    changed_.clear();
    whole_ = false;
    return good ? Drawn::shown : Drawn::failed;
}

} // namespace

std::unique_ptr<BackEnd> makeMemoryBackEnd(SDL_Window* window) {
    return std::make_unique<MemoryBackEnd>(window);
}

} // namespace screen
