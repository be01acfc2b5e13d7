#include "appliance/screen/monitor/session.h"

#include "appliance/screen/monitor/key_names.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <csignal>
#include <cstdio>
#include <SDL.h>

namespace screen {
namespace {

// Process-wide state of this file.
// Set by the handler of SIGINT and SIGTERM; read by the loop.
volatile std::sig_atomic_t stopAsked = 0;

constexpr int waitMs = 20;                    // a key waits at most this long
constexpr std::int64_t textUs = 100'000;      // a change of the texts does not wake a waiter for frames
constexpr std::int64_t displayUs = 1'000'000; // how often the display's size is looked at
constexpr std::int64_t failureUs = 2'000'000; // a back end that fails for so long has lost the display

bool isDue(std::int64_t& last, std::int64_t interval, std::int64_t now) {
    if (now - last < interval)
        return false;
    last = now;
    return true;
}

class Session {
public:
    Session(const SessionOptions& options, Window& window, BackEnd& backEnd, Content& content, Shown& shown)
        : options_(options), window_(window), backEnd_(backEnd), content_(content), shown_(shown) {}
    Ending run();

private:
    void takeEvents();
    void take(const SDL_Event& event);
    void takeWindowEvent(const SDL_WindowEvent& event);
    void takeKeyDown(const SDL_KeyboardEvent& event);
    void takeClick(const SDL_MouseButtonEvent& event);
    void look();
    void draw(const std::vector<Part>& parts);

    const SessionOptions& options_;
    Window& window_;
    BackEnd& backEnd_;
    Content& content_;
    Shown& shown_;
    std::optional<Ending> ending_;
    bool whole_ = true;           // the window's content was lost
    std::vector<PartMark> marks_; // of what the window shows
    std::int64_t lookedAt_ = 0;
    std::int64_t displayAt_ = 0;
    std::int64_t goodAt_ = 0; // when the back end worked last
};

void Session::takeWindowEvent(const SDL_WindowEvent& event) {
    switch (event.event) {
    case SDL_WINDOWEVENT_CLOSE:
        ending_ = Ending::asked;
        break;
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_EXPOSED:
    case SDL_WINDOWEVENT_RESIZED:
    case SDL_WINDOWEVENT_SIZE_CHANGED:
    case SDL_WINDOWEVENT_RESTORED:
        whole_ = true;
        break;
    default: // of SDL; the others change no pixels
        break;
    }
}

void Session::takeKeyDown(const SDL_KeyboardEvent& event) {
    if (event.repeat != 0 || (event.keysym.mod & (KMOD_CTRL | KMOD_ALT | KMOD_GUI)) != 0)
        return;
    if (event.keysym.sym == SDLK_q && !window_.console())
        ending_ = Ending::asked;
    else if (event.keysym.sym == SDLK_f)
        window_.setFullscreen(!window_.fullscreen());
    else if (const auto key = keyOf(event.keysym.sym))
        content_.keyDown(*key);
}

// SDL tells the place in units of the desktop, which may be larger than pixels.
void Session::takeClick(const SDL_MouseButtonEvent& event) {
    Size units;
    SDL_GetWindowSize(window_.sdl(), &units.width, &units.height);
    const Size pixels = window_.size();
    if (units.width > 0 && units.height > 0)
        content_.click(event.x * pixels.width / units.width, event.y * pixels.height / units.height);
}

void Session::take(const SDL_Event& event) {
    switch (event.type) {
    case SDL_QUIT: // a closed window was told before: this is a Wayland compositor that has ended
        ending_ = Ending::again;
        break;
    case SDL_WINDOWEVENT:
        takeWindowEvent(event.window);
        break;
    case SDL_KEYDOWN:
        takeKeyDown(event.key);
        break;
    case SDL_KEYUP:
        if (const auto key = keyOf(event.key.keysym.sym))
            content_.keyUp(*key);
        break;
    case SDL_MOUSEBUTTONDOWN:
        takeClick(event.button);
        break;
    case SDL_RENDER_TARGETS_RESET:
    case SDL_RENDER_DEVICE_RESET:
        ending_ = Ending::again; // all textures are lost
        break;
    default: // of SDL; the others mean nothing here
        break;
    }
}

void Session::takeEvents() {
    SDL_Event event;
    while (!ending_ && SDL_PollEvent(&event) != 0)
        take(event);
}

void Session::draw(const std::vector<Part>& parts) {
    const std::int64_t now = gettimeusec();
    switch (backEnd_.show(parts, whole_)) {
    case Drawn::shown:
        whole_ = false;
        goodAt_ = now;
        marks_.clear();
        for (const Part& part : parts)
            marks_.push_back(markOf(part));
        shown_.tell();
        break;
    case Drawn::stale:
        lookedAt_ = 0; // look again at once
        break;
    case Drawn::failed:
        whole_ = true;
        if (now - goodAt_ > failureUs)
            ending_ = Ending::again;
        break;
    }
}

// Draws if what is to be shown has changed.
void Session::look() {
    const std::vector<Part>& parts = content_.parts(window_.size());
    bool changed = whole_ || parts.size() != marks_.size();
    for (std::size_t i = 0; i < parts.size() && !changed; ++i)
        changed = markOf(parts[i]) != marks_[i];
    if (changed)
        draw(parts);
}

Ending Session::run() {
    goodAt_ = gettimeusec();
    while (!ending_) {
        takeEvents();
        const std::int64_t now = gettimeusec();
        if (stopAsked != 0 || now > options_.until)
            return Ending::asked;
        content_.tick();
        if (isDue(displayAt_, displayUs, now) && window_.followDisplay())
            return Ending::again;
        if (options_.report != nullptr && !marks_.empty())
            options_.report(window_.size());
        const bool fresh = lookedAt_ != 0 && content_.wait(waitMs);
        if (fresh || whole_ || gettimeusec() - lookedAt_ >= textUs) {
            lookedAt_ = gettimeusec();
            look();
        }
    }
    return *ending_;
}

void tell(const Attempt& attempt, const std::string& text) {
    if (attempt.first)
        std::fprintf(stderr, "decoder-monitor: %s\n", text.c_str());
    else
        logmsg(7, "%s", text.c_str());
}

std::unique_ptr<BackEnd> chooseBackEnd(const SessionOptions& options, const Attempt& attempt, bool gpu,
                                       SDL_Window* window) {
    const bool wanted =
        options.backEnd == BackEndChoice::gpu || (options.backEnd == BackEndChoice::automatic && gpu);
    if (wanted && !attempt.safe) {
        std::string reason;
        if (auto backEnd = makeGpuBackEnd(window, reason))
            return backEnd;
        tell(attempt,
             "there is no graphics processor to draw with, so the picture is drawn in memory: " + reason);
    }
    return makeMemoryBackEnd(window);
}

} // namespace

Ending runSession(const SessionOptions& options, const Attempt& attempt, bool gpu, Shown& shown,
                  const std::function<std::unique_ptr<Content>()>& make) {
    std::signal(SIGINT, [](int) { stopAsked = 1; });
    std::signal(SIGTERM, [](int) { stopAsked = 1; });
    std::string reason;
    const auto window = Window::open({attempt.driver, options.fullscreen, options.size, false}, reason);
    if (window == nullptr) {
        tell(attempt, "the display (" + attempt.driver + ") can't be opened: " + reason);
        return Ending::noDisplay;
    }
    const auto backEnd = chooseBackEnd(options, attempt, gpu, window->sdl());
    const auto content = make();
    return Session(options, *window, *backEnd, *content, shown).run();
}

} // namespace screen
