#include "appliance/confinement/filter.h"

#include <cerrno>
#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace confinement {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t architecture = AUDIT_ARCH_ARM;
#else
constexpr std::uint32_t architecture = 0; // none: install() fails
#endif

// The numbers of calls are the same on all architectures from here on; all of these came after 2018.
constexpr std::uint32_t firstSharedNumber = 424;
constexpr std::uint32_t otherMode = 0x40000000; // calls of x86-64 with 32-bit pointers
constexpr std::uint32_t numbersOfArm = 0xf0000;

constexpr std::uint32_t refusal(int error) {
    return SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
}

// Little endian, as all architectures above.
constexpr std::uint32_t offsetOf(int argument, bool high) {
    return static_cast<std::uint32_t>(offsetof(seccomp_data, args)) +
           8U * static_cast<std::uint32_t>(argument) + (high ? 4U : 0U);
}

} // namespace

Filter::Filter() {
    put(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
    put(BPF_JMP | BPF_JEQ | BPF_K, architecture, 1, 0);
    result(refusal(EPERM));
    put(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
}

void Filter::put(std::uint16_t code, std::uint32_t operand, std::uint8_t whenTrue, std::uint8_t whenFalse) {
    program_.push_back({code, whenTrue, whenFalse, operand});
}

void Filter::result(std::uint32_t value) {
    put(BPF_RET | BPF_K, value);
}

void Filter::loadLow(int argument) {
    put(BPF_LD | BPF_W | BPF_ABS, offsetOf(argument, false));
}

void Filter::loadHigh(int argument) {
    put(BPF_LD | BPF_W | BPF_ABS, offsetOf(argument, true));
}

void Filter::begin(long call) {
    rowStart_ = program_.size();
    put(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 0);
}

// Another call jumps over the row.
void Filter::end() {
    constexpr std::size_t longestJump = 255;
    const std::size_t length = program_.size() - rowStart_ - 1;
    tooLong_ = tooLong_ || length > longestJump;
    program_[rowStart_].jf = static_cast<std::uint8_t>(length);
}

void Filter::allow(long call) {
    begin(call);
    result(SECCOMP_RET_ALLOW);
    end();
}

void Filter::refuse(long call, int error) {
    begin(call);
    result(refusal(error));
    end();
}

void Filter::allowValues(long call, int argument, const std::vector<std::uint32_t>& values) {
    begin(call);
    loadLow(argument);
    for (const std::uint32_t value : values) {
        put(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
        result(SECCOMP_RET_ALLOW);
    }
    result(refusal(EPERM));
    end();
}

void Filter::allowUnless(long call, int argument, const std::vector<std::uint32_t>& values) {
    begin(call);
    loadLow(argument);
    for (const std::uint32_t value : values) {
        put(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
        result(refusal(EPERM));
    }
    result(SECCOMP_RET_ALLOW);
    end();
}

void Filter::allowWithBits(long call, int argument, std::uint32_t mask) {
    begin(call);
    loadLow(argument);
    put(BPF_ALU | BPF_AND | BPF_K, mask);
    put(BPF_JMP | BPF_JEQ | BPF_K, mask, 0, 1);
    result(SECCOMP_RET_ALLOW);
    result(refusal(EPERM));
    end();
}

void Filter::allowWithoutBits(long call, int argument, std::uint32_t mask) {
    begin(call);
    loadLow(argument);
    put(BPF_JMP | BPF_JSET | BPF_K, mask, 1, 0);
    result(SECCOMP_RET_ALLOW);
    result(refusal(EPERM));
    end();
}

void Filter::allowAddresses(long call, int argument, std::uint32_t value, int addressArgument,
                            const std::vector<std::uint64_t>& addresses) {
    begin(call);
    loadLow(argument);
    put(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
    result(refusal(EPERM));
    for (const std::uint64_t address : addresses) {
        loadHigh(addressArgument);
        put(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(address >> 32U), 0, 3);
        loadLow(addressArgument);
        put(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(address), 0, 1);
        result(SECCOMP_RET_ALLOW);
    }
    result(refusal(EPERM));
    end();
}

// The limit is below 4 GiB.
void Filter::decideFrom(int argument, std::uint64_t limit) {
    loadHigh(argument);
    put(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 2);
    loadLow(argument);
    put(BPF_JMP | BPF_JGE | BPF_K, static_cast<std::uint32_t>(limit), 0, 1);
    result(SECCOMP_RET_ALLOW);
    result(refusal(EPERM));
}

void Filter::allowFrom(long call, int argument, std::uint64_t limit) {
    begin(call);
    decideFrom(argument, limit);
    end();
}

void Filter::allowFromWhenBits(long call, int argument, std::uint64_t limit, int bitsArgument,
                               std::uint32_t bits) {
    begin(call);
    loadLow(bitsArgument);
    put(BPF_JMP | BPF_JSET | BPF_K, bits, 1, 0);
    result(SECCOMP_RET_ALLOW);
    decideFrom(argument, limit);
    end();
}

void Filter::allowFromWithoutBits(long call, int argument, std::uint64_t limit, int bitsArgument,
                                  std::uint32_t bits) {
    begin(call);
    loadLow(bitsArgument);
    put(BPF_JMP | BPF_JSET | BPF_K, bits, 0, 1);
    result(refusal(EPERM));
    decideFrom(argument, limit);
    end();
}

void Filter::allowValueOrValue(long call, int argument, std::uint32_t value, int otherArgument,
                               std::uint32_t otherValue) {
    begin(call);
    loadLow(argument);
    put(BPF_JMP | BPF_JEQ | BPF_K, value, 2, 0);
    loadLow(otherArgument);
    put(BPF_JMP | BPF_JEQ | BPF_K, otherValue, 0, 1);
    result(SECCOMP_RET_ALLOW);
    result(refusal(EPERM));
    end();
}

void Filter::allowSockets(long call, const std::vector<std::uint32_t>& families, std::uint32_t family,
                          std::uint32_t protocol) {
    begin(call);
    loadLow(0);
    put(BPF_JMP | BPF_JEQ | BPF_K, family, 0, 4);
    loadLow(2);
    put(BPF_JMP | BPF_JEQ | BPF_K, protocol, 0, 1);
    result(SECCOMP_RET_ALLOW);
    result(refusal(EPERM));
    for (const std::uint32_t allowed : families) {
        constexpr std::uint32_t typeBits = 0xf;
        put(BPF_JMP | BPF_JEQ | BPF_K, allowed, 0, 5);
        loadLow(1);
        put(BPF_ALU | BPF_AND | BPF_K, typeBits);
        put(BPF_JMP | BPF_JGT | BPF_K, SOCK_DGRAM, 0, 1);
        result(refusal(EPERM));
        result(SECCOMP_RET_ALLOW);
    }
    result(refusal(EPERM));
    end();
}

bool Filter::install() {
    put(BPF_JMP | BPF_JGE | BPF_K, otherMode, 3, 0);
    put(BPF_JMP | BPF_JGE | BPF_K, numbersOfArm, 2, 0);
    put(BPF_JMP | BPF_JGE | BPF_K, firstSharedNumber, 0, 1);
    result(refusal(ENOSYS));
    result(refusal(EPERM));
    if (tooLong_) {
        errno = E2BIG;
        return false;
    }
    if (architecture == 0 || program_.size() > BPF_MAXINSNS) {
        errno = ENOSYS;
        return false;
    }
    const sock_fprog filter{static_cast<unsigned short>(program_.size()), program_.data()};
    // Without the flag some kernels make each branch of the process slower, as a guard against itself.
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_SPEC_ALLOW, &filter) == 0)
        return true;
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

} // namespace confinement
