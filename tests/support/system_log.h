// Replaces the C library's syslog() in a test program: a test must not write to the system log.
//
// Include it in one source of the program, which defines systemLogLine(). Hardened code calls the checked form.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

// Called with each line.
void systemLogLine(int priority, const std::string& text);

namespace system_log {

inline void take(int priority, const char* format, va_list arguments) {
    char text[10000];
    std::vsnprintf(text, sizeof text, format, arguments);
    systemLogLine(priority, text);
}

} // namespace system_log

extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    system_log::take(priority, format, arguments);
    va_end(arguments);
}

extern "C" void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    system_log::take(priority, format, arguments);
    va_end(arguments);
}
