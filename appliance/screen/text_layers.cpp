#include "appliance/screen/text_layers.h"

#include "appliance/screen/text_drawing.h"

#include <algorithm>

namespace screen {
namespace {

// Rows that one text takes at most.
constexpr int mostRows = 4;

// All sizes scale with the screen. Old monitors hide the outermost twentieth of a picture, so no text is there.
struct Measures {
    explicit Measures(Size screen)
        : left(screen.width / 20), top(screen.height / 22), room(screen.width - 2 * left),
          place(screen.height * 2 / 23), bottom(screen.height * 2 / 5),
          letters(std::max(8, screen.height / 20)), outline(std::max(1.5, screen.height / 120.0)) {}
    int left;
    int top;
    int room;   // width of a row
    int place;  // distance from one line to the next
    int bottom; // no text below this
    int letters;
    double outline;
};

struct Line {
    TextLayout layout; // null: the text is empty
    int top = 0;
};
using Lines = std::array<Line, libcommon::osdLines>;

// Gives each text at most `rows` rows. False when they reach too far down.
bool arrange(const ScreenText& texts, const Measures& measures, int rows, Lines& lines) {
    int below = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Line& line = lines[i];
        line.top = std::max(below, measures.top + static_cast<int>(i) * measures.place);
        line.layout.reset();
        if (texts[i].empty())
            continue;
        line.layout = layOut(texts[i], Weight::bold, measures.letters, measures.room, rows);
        pango_layout_set_alignment(line.layout.get(), PANGO_ALIGN_CENTER);
        below = line.top + sizeOf(line.layout).height;
    }
    return below <= measures.bottom;
}

} // namespace

bool TextLayers::update(const ScreenText& texts, Size screen) {
    if (texts == texts_ && screen == screen_)
        return false;
    texts_ = texts;
    screen_ = screen;
    images_.clear();
    ScreenText clean;
    std::transform(texts.begin(), texts.end(), clean.begin(), drawable);
    const Measures measures(screen);
    Lines lines;
    // As many rows for each text as fit for all texts.
    for (int rows = mostRows; rows > 0; --rows)
        if (arrange(clean, measures, rows, lines))
            break;
    for (const Line& line : lines)
        if (line.layout != nullptr)
            images_.push_back(outlined(line.layout, measures.left, line.top, measures.outline));
    return true;
}

} // namespace screen
