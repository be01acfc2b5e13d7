#include "tests/faults/progress.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace faults {

namespace {

constexpr long mostPrinted = 100;
constexpr double noLimit = 1e9;

// A whole number of at least 0 without anything behind it.
std::optional<long> numberIn(std::string_view text) {
    long value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0)
        return std::nullopt;
    return value;
}

bool take(Options& options, std::string_view name, const std::string& value) {
    if (name == "--state") {
        options.stateFile = value;
        return !value.empty();
    }
    const std::optional<long> number = numberIn(value);
    if (!number)
        return false;
    if (name == "--seed")
        options.seed = static_cast<unsigned>(*number);
    else if (name == "--seconds")
        options.seconds = static_cast<double>(*number);
    else if (name == "--count")
        options.count = *number;
    else
        return false;
    return true;
}

void printUsage(const char* program, const std::string& description) {
    std::printf("Usage: %s [OPTION]...\n\n%s\n\n"
                "  --seed N      choose other random numbers (1)\n"
                "  --seconds N   begin nothing new after so many seconds\n"
                "  --count N     do at most so many items\n"
                "  --state FILE  go on where FILE says, and keep FILE up to date\n"
                "  --help        this text\n\n"
                "Exit status: 0 if everything held, 1 if something broke, 2 for a wrong option, 77 if it "
                "can't run here.\n",
                program, description.c_str());
}

} // namespace

std::optional<Options> readOptions(int argc, char** argv, const std::string& description, int& status) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--help") {
            printUsage(argv[0], description);
            status = 0;
            return std::nullopt;
        }
        if (i + 1 >= argc || !take(options, name, argv[i + 1])) {
            std::fprintf(stderr, "%s: wrong option %s (--help lists them)\n", argv[0], name.c_str());
            status = 2;
            return std::nullopt;
        }
        ++i;
    }
    return options;
}

Progress::Progress(Options options, long total) : options_(std::move(options)), total_(total) {
    if (!options_.stateFile.empty())
        read();
}

void Progress::read() {
    std::ifstream file(options_.stateFile);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        std::string name;
        words >> key;
        if (key == "figure")
            words >> name >> figures_[name];
        else if (key == "next")
            words >> next_;
        else if (key == "broken")
            words >> broken_;
        else if (key != "total") // it is the program's own, and may have grown
            words.setstate(std::ios::failbit);
        if (!words)
            throw std::runtime_error(options_.stateFile + " has a line that is not understood: " + line);
    }
}

void Progress::write() const {
    const std::string fresh = options_.stateFile + ".new";
    std::ofstream file(fresh);
    file << "next " << next_ << "\ntotal " << total_ << "\nbroken " << broken_ << '\n';
    for (const auto& [name, value] : figures_)
        file << "figure " << name << ' ' << value << '\n';
    file.close();
    if (!file || std::rename(fresh.c_str(), options_.stateFile.c_str()) != 0)
        throw std::runtime_error("can't write " + options_.stateFile);
}

double Progress::secondsLeft() const {
    const std::chrono::duration<double> used = std::chrono::steady_clock::now() - begin_;
    return options_.seconds ? *options_.seconds - used.count() : noLimit;
}

bool Progress::more() const {
    return (total_ == 0 || next_ < total_) && (!options_.count || doneNow_ < *options_.count) &&
           secondsLeft() > 0;
}

void Progress::done() {
    ++next_;
    ++doneNow_;
    if (!options_.stateFile.empty())
        write();
}

void Progress::add(const std::string& name, double value) {
    figures_[name] += value;
}

void Progress::set(const std::string& name, double value) {
    figures_[name] = value;
}

void Progress::max(const std::string& name, double value) {
    const auto [place, isNew] = figures_.emplace(name, value);
    place->second = isNew ? value : std::max(place->second, value);
}

void Progress::min(const std::string& name, double value) {
    const auto [place, isNew] = figures_.emplace(name, value);
    place->second = isNew ? value : std::min(place->second, value);
}

double Progress::figure(const std::string& name) const {
    const auto found = figures_.find(name);
    return found == figures_.end() ? 0 : found->second;
}

void Progress::broken(const std::string& text) {
    ++broken_;
    if (++brokenNow_ <= mostPrinted)
        std::printf("broken: seed %u item %ld: %s\n", options_.seed, next_, text.c_str());
    std::fflush(stdout);
}

int Progress::end() const {
    for (const auto& [name, value] : figures_)
        std::printf("figure %s %g\n", name.c_str(), value);
    std::printf("%ld items, %ld of them in this run; broken %ld, in this run %ld\n", next_, doneNow_, broken_,
                brokenNow_);
    return brokenNow_ == 0 ? 0 : 1;
}

} // namespace faults
