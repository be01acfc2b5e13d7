#include "bench/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace bench {

namespace {

constexpr double left = 190;
constexpr double right = 700;
constexpr double top = 44;
constexpr double strip = 46;

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string formatted(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

// The horizontal position of a value.
class Axis {
public:
    explicit Axis(const std::vector<Series>& series) {
        double largest = 10;
        for (const Series& one : series)
            largest = std::max(largest, one.distribution.worst());
        decades_ = std::ceil(std::log10(largest));
    }

    double place(double value) const {
        return left + (right - left) * std::log10(std::max(value, 1.0)) / decades_;
    }

    std::string drawn(double bottom, const std::string& unit) const {
        std::string text;
        for (int decade = 0; decade <= static_cast<int>(decades_); ++decade) {
            const double value = std::pow(10.0, decade);
            text += formatted("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#ddd'/>\n", place(value),
                              top - 8, place(value), bottom);
            text += formatted("<text x='%.1f' y='%.1f' text-anchor='middle'>%.0f %s</text>\n", place(value),
                              bottom + 18, value, unit.c_str());
        }
        return text;
    }

private:
    double decades_ = 1;
};

std::string drawnSeries(const Series& series, const Axis& axis, double middle) {
    std::string text = formatted("<text x='%.1f' y='%.1f' text-anchor='end'>%s</text>\n", left - 12,
                                 middle + 4, series.name.c_str());
    // Dots of one value would hide each other, so each is drawn a little lower than the one before.
    int row = 0;
    for (const double value : series.distribution.samples())
        text += formatted("<circle cx='%.1f' cy='%.1f' r='2.5' fill='#2a6fb0' fill-opacity='0.45'/>\n",
                          axis.place(value), middle - 12 + 6 * (row++ % 5));
    const double median = axis.place(series.distribution.median());
    text += formatted("<line x1='%.1f' y1='%.1f' x2='%.1f' y2='%.1f' stroke='#c0392b' stroke-width='2'/>\n",
                      median, middle - 17, median, middle + 17);
    return text + formatted("<text x='%.1f' y='%.1f' fill='#c0392b'>median %.0f, worst %.0f</text>\n",
                            right + 8, middle + 4, series.distribution.median(), series.distribution.worst());
}

} // namespace

std::string stripChart(const std::string& title, const std::string& unit, const std::vector<Series>& series) {
    const Axis axis(series);
    const double bottom = top + strip * static_cast<double>(series.size());
    std::string text = formatted("<svg xmlns='http://www.w3.org/2000/svg' width='880' height='%.0f' "
                                 "font-family='sans-serif' font-size='12'>\n"
                                 "<rect width='100%%' height='100%%' fill='white'/>\n"
                                 "<text x='%.0f' y='20' font-size='15'>%s</text>\n",
                                 bottom + 30, left, title.c_str());
    text += axis.drawn(bottom, unit);
    double middle = top + strip / 2;
    for (const Series& one : series) {
        text += drawnSeries(one, axis, middle);
        middle += strip;
    }
    return text + "</svg>\n";
}

} // namespace bench
