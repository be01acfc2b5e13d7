// The file of the recorder: a header and cells of 64 bytes, used in a circle.
//
// A line takes one or more cells in a row. Each cell has the number of its place in the endless row of all cells ever
// written, so that a reader finds the oldest line without an index, and a checksum. A line of which a cell is missing,
// because the process was killed while it wrote or because newer lines have overwritten it, is left out by the reader,
// which then knows that something is missing there. Numbers have the byte order of the machine.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace recorder {

inline constexpr std::size_t cellText = 44;       // bytes of text in a cell
inline constexpr std::uint32_t ringVersion = 1;   // of this layout
inline constexpr std::size_t fewestCells = 1024;  // 64 KiB
inline constexpr std::size_t mostCells = 1 << 20; // 64 MiB

struct RingHeader {
    char magic[8];
    std::uint32_t version;
    std::uint32_t cells; // in the file, without this header
    char unused[48];
};
static_assert(sizeof(RingHeader) == 64);
inline constexpr char ringMagic[8] = {'s', 'k', 'e', 'l', 'm', 'o', 'r', 'J'};

struct Cell {
    std::uint64_t number; // its place, counted from 1; 0: empty, or being written
    std::uint32_t check;  // checkOf()
    std::uint16_t index;  // of this cell in its line
    std::uint16_t cells;  // of this line
    std::uint16_t length; // bytes of text that are used; the rest are zeros
    std::uint16_t unused;
    char text[cellText];
};
static_assert(sizeof(Cell) == 64);

// The checksum of all but the field itself.
inline std::uint32_t checkOf(Cell cell) {
    cell.check = 0;
    std::array<std::uint64_t, sizeof(Cell) / sizeof(std::uint64_t)> words;
    std::memcpy(words.data(), &cell, sizeof cell);
    std::uint64_t sum = 0x9e3779b97f4a7c15U;
    for (const std::uint64_t word : words) {
        sum = (sum ^ word) * 0xff51afd7ed558ccdU;
        sum ^= sum >> 32U;
    }
    return static_cast<std::uint32_t>(sum);
}

} // namespace recorder
