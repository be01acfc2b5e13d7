#include "recorder/ring_reader.h"

#include "recorder/ring_format.h"

#include <algorithm>
#include <stdexcept>

namespace recorder {
namespace {

// The cells of a file, by their places.
class Cells {
public:
    explicit Cells(std::string_view bytes) : cells_(bytes.size() / sizeof(Cell)) {
        std::memcpy(cells_.data(), bytes.data(), cells_.size() * sizeof(Cell));
    }

    // The places that may be there: [oldest(), newest()). Counted from 0.
    std::uint64_t oldest(std::size_t ring) const { return newest_ > ring ? newest_ - ring : 0; }
    std::uint64_t newest() const { return newest_; }

    void check(std::size_t ring) {
        whole_.resize(cells_.size());
        for (std::size_t at = 0; at < cells_.size(); ++at) {
            const Cell& cell = cells_[at];
            whole_[at] = cell.number != 0 && (cell.number - 1) % ring == at && checkOf(cell) == cell.check &&
                         cell.length <= cellText && cell.cells != 0 && cell.index < cell.cells;
            if (whole_[at])
                newest_ = std::max(newest_, cell.number);
        }
    }

    // The cell of that place; null when it is missing.
    const Cell* find(std::uint64_t place, std::size_t ring) const {
        const std::size_t at = place % ring;
        return at < cells_.size() && whole_[at] && cells_[at].number == place + 1 ? &cells_[at] : nullptr;
    }

private:
    std::vector<Cell> cells_;
    std::vector<bool> whole_;
    std::uint64_t newest_ = 0;
};

// The line that begins at this place: how many cells it takes, 0 when it is not whole.
std::size_t readLine(const Cells& cells, std::uint64_t place, std::size_t ring, std::string& line) {
    const Cell* first = cells.find(place, ring);
    if (first == nullptr || first->index != 0)
        return 0;
    line.clear();
    for (std::size_t index = 0; index < first->cells; ++index) {
        const Cell* cell = cells.find(place + index, ring);
        if (cell == nullptr || cell->index != index || cell->cells != first->cells)
            return 0;
        line.append(cell->text, cell->length);
    }
    return first->cells;
}

RingHeader headerOf(std::string_view bytes) {
    RingHeader header{};
    std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof header));
    if (bytes.size() < sizeof header)
        throw std::runtime_error("the file is cut within its header");
    if (header.version != ringVersion)
        throw std::runtime_error("the file has version " + std::to_string(header.version) +
                                 ", this program reads version " + std::to_string(ringVersion));
    if (header.cells < fewestCells || header.cells > mostCells)
        throw std::runtime_error("the file's header is damaged");
    return header;
}

} // namespace

bool looksLikeRing(std::string_view bytes) {
    return bytes.starts_with(std::string_view(ringMagic, sizeof ringMagic));
}

std::vector<std::string> readRing(std::string_view bytes) {
    if (!looksLikeRing(bytes))
        throw std::runtime_error("this is no file of the recorder");
    const std::size_t ring = headerOf(bytes).cells;
    Cells cells(bytes.substr(sizeof(RingHeader), ring * sizeof(Cell)));
    cells.check(ring);
    std::vector<std::string> lines;
    std::string line;
    for (std::uint64_t place = cells.oldest(ring); place < cells.newest();) {
        const std::size_t taken = readLine(cells, place, ring, line);
        if (taken > 0)
            lines.push_back(line);
        else if (lines.empty() || lines.back() != gapLine)
            lines.emplace_back(gapLine);
        place += std::max<std::size_t>(taken, 1);
    }
    return lines;
}

} // namespace recorder
