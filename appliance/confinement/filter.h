// A program for the kernel's filter of system calls, made row by row.
//
// Each row is for one call and always decides about it. Calls without a row get the filter's last word: "not permitted", or
// "unknown" for calls that are younger than this list, because the C library then uses an older one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/filter.h>
#include <vector>

namespace confinement {

// Arguments are counted from 0.
class Filter {
public:
    Filter();

    void allow(long call);
    void refuse(long call, int error);

    // Allowed when the argument, of which only 32 bits count, is one of the values.
    void allowValues(long call, int argument, const std::vector<std::uint32_t>& values);
    // Allowed when all bits of the mask are set in the argument.
    void allowWithBits(long call, int argument, std::uint32_t mask);
    // Allowed when no bit of the mask is set.
    void allowWithoutBits(long call, int argument, std::uint32_t mask);
    // Allowed when the one argument has the one value, or the other the other.
    void allowValueOrValue(long call, int argument, std::uint32_t value, int otherArgument,
                           std::uint32_t otherValue);
    // Allowed when none of the values, of 32 bits.
    void allowUnless(long call, int argument, const std::vector<std::uint32_t>& values);
    // Allowed when one argument has this value of 32 bits, and another is one of the addresses.
    void allowAddresses(long call, int argument, std::uint32_t value, int addressArgument,
                        const std::vector<std::uint64_t>& addresses);
    // Allowed when the address is not below the limit. With `bits`, also when these are not in `bitsArgument`.
    void allowFrom(long call, int argument, std::uint64_t limit);
    void allowFromWhenBits(long call, int argument, std::uint64_t limit, int bitsArgument,
                           std::uint32_t bits);
    // Allowed when the address is not below the limit and the bits are not in `bitsArgument`.
    void allowFromWithoutBits(long call, int argument, std::uint64_t limit, int bitsArgument,
                              std::uint32_t bits);
    // socket(): allowed for these families unless raw, and for one family with one protocol.
    void allowSockets(long call, const std::vector<std::uint32_t>& families, std::uint32_t family,
                      std::uint32_t protocol);

    // Applies to this thread and those that it starts. Needs "no new privileges". False with errno, E2BIG when a row has
    // too many values: then nothing is installed.
    bool install();

private:
    void begin(long call);
    void end();
    void put(std::uint16_t code, std::uint32_t operand, std::uint8_t whenTrue = 0,
             std::uint8_t whenFalse = 0);
    void loadLow(int argument);
    void loadHigh(int argument);
    void result(std::uint32_t value);
    void decideFrom(int argument, std::uint64_t limit);

    std::vector<sock_filter> program_;
    std::size_t rowStart_ = 0;
    bool tooLong_ = false; // a row can't be jumped over
};

} // namespace confinement
