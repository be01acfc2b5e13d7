// What the tracer does with the registers of a stopped thread.
#pragma once

#include "tests/faults/tracing/tracer.h"

namespace faults::registers {

#if defined(__x86_64__)
inline constexpr bool possible = true;
#else
inline constexpr bool possible = false;
#endif

// False when the thread is gone or not at a system call.
bool readCall(pid_t thread, Call& call);
void skipCall(pid_t thread); // before a call: the kernel does nothing
void setResult(pid_t thread, std::int64_t result);
void jumpToNowhere(pid_t thread);
std::uint64_t instruction(pid_t thread);

// One breakpoint in the debug registers.
bool setBreakpoint(pid_t thread, std::uint64_t address);
void clearBreakpoint(pid_t thread);
bool hitBreakpoint(pid_t thread);

// Where a function of this program's libraries is in the other process; 0 while its library is not loaded there.
std::uint64_t addressIn(pid_t process, const void* function);
// "libc.so.6+0x1234"; the program's own name for its own code.
std::string placeOf(pid_t process, std::uint64_t address);

} // namespace faults::registers
