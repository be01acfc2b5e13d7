#include "tests/faults/tracing/registers.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <sstream>
#include <sys/ptrace.h>
#include <sys/user.h>

namespace faults::registers {

namespace {

struct Mapping {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t offset = 0;
    std::string file;
};

std::vector<Mapping> mappings(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/maps");
    std::vector<Mapping> all;
    for (std::string line; std::getline(file, line);) {
        Mapping mapping;
        unsigned long long begin = 0;
        unsigned long long end = 0;
        unsigned long long offset = 0;
        if (std::sscanf(line.c_str(), "%llx-%llx %*s %llx", &begin, &end, &offset) != 3) {
            continue;
        }
        mapping.begin = begin;
        mapping.end = end;
        mapping.offset = offset;
        const std::size_t slash = line.find('/');
        mapping.file = slash == std::string::npos ? "" : line.substr(slash);
        all.push_back(mapping);
    }
    return all;
}

#if defined(__x86_64__)
template<class Value>
void poke(pid_t thread, std::size_t offset, Value value) {
    ptrace(PTRACE_POKEUSER, thread, offset, value);
}

constexpr std::size_t debugRegister(std::size_t number) {
    return offsetof(user, u_debugreg) + number * sizeof(user::u_debugreg[0]);
}

constexpr std::size_t general(std::size_t offset) {
    return offsetof(user, regs) + offset;
}
#endif

} // namespace

bool readCall(pid_t thread, Call& call) {
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0) {
        return false;
    }
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        call.entry = true;
        call.number = info.entry.nr;
        for (int i = 0; i < 6; ++i) {
            call.arguments[i] = info.entry.args[i];
        }
        return true;
    }
    call.entry = false;
    call.result = info.exit.rval;
    return info.op == PTRACE_SYSCALL_INFO_EXIT;
}

#if defined(__x86_64__)

void skipCall(pid_t thread) {
    poke(thread, general(offsetof(user_regs_struct, orig_rax)), -1L);
}

void setResult(pid_t thread, std::int64_t result) {
    poke(thread, general(offsetof(user_regs_struct, rax)), result);
}

void jumpToNowhere(pid_t thread) {
    poke(thread, general(offsetof(user_regs_struct, rip)), 0L);
}

std::uint64_t instruction(pid_t thread) {
    user_regs_struct all{};
    ptrace(PTRACE_GETREGS, thread, nullptr, &all);
    return all.rip;
}

bool setBreakpoint(pid_t thread, std::uint64_t address) {
    return ptrace(PTRACE_POKEUSER, thread, debugRegister(0), address) == 0 &&
           ptrace(PTRACE_POKEUSER, thread, debugRegister(7), 1L) == 0;
}

void clearBreakpoint(pid_t thread) {
    poke(thread, debugRegister(7), 0L);
}

bool hitBreakpoint(pid_t thread) {
    const long state = ptrace(PTRACE_PEEKUSER, thread, debugRegister(6), 0L);
    if ((state & 1) == 0) {
        return false;
    }
    poke(thread, debugRegister(6), 0L);
    return true;
}

#else

void skipCall(pid_t) {}
void setResult(pid_t, std::int64_t) {}
void jumpToNowhere(pid_t) {}
std::uint64_t instruction(pid_t) {
    return 0;
}
bool setBreakpoint(pid_t, std::uint64_t) {
    return false;
}
void clearBreakpoint(pid_t) {}
bool hitBreakpoint(pid_t) {
    return false;
}

#endif

std::uint64_t addressIn(pid_t process, const void* function) {
    Dl_info library{};
    if (dladdr(function, &library) == 0) {
        return 0;
    }
    char* real = realpath(library.dli_fname, nullptr);
    const std::string file = real == nullptr ? library.dli_fname : real;
    std::free(real);
    const auto offset =
        reinterpret_cast<std::uint64_t>(function) - reinterpret_cast<std::uint64_t>(library.dli_fbase);
    std::uint64_t base = 0;
    std::size_t parts = 0;
    for (const Mapping& mapping : mappings(process)) {
        if (mapping.file == file) {
            base = mapping.offset == 0 ? mapping.begin : base;
            ++parts;
        }
    }
    constexpr std::size_t wholeLibrary =
        4; // headers, code, constants, data: it is mapped one after the other
    return base == 0 || parts < wholeLibrary ? 0 : base + offset;
}

std::string placeOf(pid_t process, std::uint64_t address) {
    for (const Mapping& mapping : mappings(process)) {
        if (address >= mapping.begin && address < mapping.end) {
            std::ostringstream text;
            const std::size_t slash = mapping.file.rfind('/');
            text << (slash == std::string::npos ? "kernel" : mapping.file.substr(slash + 1)) << "+0x"
                 << std::hex << address - mapping.begin + mapping.offset;
            return text.str();
        }
    }
    return "?";
}

} // namespace faults::registers
