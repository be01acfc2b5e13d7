// The samples of one measurement, and how they are printed.
#pragma once

#include <string>
#include <vector>

namespace bench {

class Distribution {
public:
    void add(double value);
    std::size_t count() const { return sorted_.size(); }

    // The percentile (0 to 100) by nearest rank; 0 without samples.
    double percentile(double percent) const;
    double median() const { return percentile(50); }
    double worst() const { return percentile(100); }
    const std::vector<double>& samples() const { return sorted_; } // ascending

    // "n 100  min 12.1  median 19.8  p90 31.0  p99 38.2  max 39.9 ms"
    std::string summary(const std::string& unit) const;

private:
    std::vector<double> sorted_;
};

// A histogram as text: one line for each class of `width`, with bars of at most 50 characters.
std::string histogram(const Distribution& distribution, double width, const std::string& unit);

} // namespace bench
