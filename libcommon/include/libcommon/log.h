// Logging: one line per call, from any thread.
//
// Lines go to the system log. Where the environment variable LIBCOMMON_LOG holds "stderr" or a file name, they go there
// instead, each as "<time> <identifier>[<pid>] <level> <text>": time in UTC, the program's name, the level's number. A
// file that was renamed or removed is opened again. A trailing newline in the text is dropped, control characters other
// than ESC are replaced, and text beyond 8 KiB is cut, so that a call is always exactly one line. When standard error
// is full, because its reader was stopped, the line goes to the system log instead. Callers never pass passwords.
#pragma once

// Logs printf-style. `level` is a syslog priority: 2 critical, 3 error, 6 information, 7 debug. Keeps errno.
// Safe in a handler for a crash, even of the thread that was just writing a line: the line is then written without
// the lock.
void logmsg(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
