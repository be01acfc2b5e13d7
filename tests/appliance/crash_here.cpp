// Loaded into the supervisor by LD_PRELOAD: its main thread crashes at a certain place after it has received SIGUSR2.
//
// CRASH_IN names the place:
//   malloc, free   inside the allocator, with the allocator's lock held
//   log            in the middle of a log line, before it was written, with the log's lock held
//   logged         the same, after it was written
//   twice          as "logged", and again in the first log line of the shutdown
//   syslog         inside syslog(), with the C library's lock for it held
//   stack          the stack is used up
// These locks of the allocator and of syslog() behave like those of the C library: a thread that needs a lock
// of a crashed thread waits forever.
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

pthread_mutex_t allocatorLock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t syslogLock = PTHREAD_MUTEX_INITIALIZER;
const char* place = "";
volatile std::sig_atomic_t crashesLeft = 0;

bool isNow(const char* where) {
    return crashesLeft > 0 && std::strcmp(place, where) == 0 && syscall(SYS_gettid) == getpid();
}

void crash() {
    crashesLeft = crashesLeft - 1;
    int* volatile nowhere = nullptr;
    *nowhere = 1;
}

int useUpStack(int level) {
    volatile char frame[4096];
    frame[0] = static_cast<char>(level);
    return level < 0 ? 0 : useUpStack(level + 1) + frame[0];
}

class Locked {
public:
    explicit Locked(pthread_mutex_t& lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~Locked() { pthread_mutex_unlock(&lock_); }

private:
    pthread_mutex_t& lock_;
};

void mayCrashAllocating() {
    if (isNow("malloc"))
        crash();
    if (isNow("stack")) {
        crashesLeft = crashesLeft - 1;
        pthread_mutex_unlock(&allocatorLock);
        useUpStack(1);
    }
}

bool isLogLine(const void* text, std::size_t length) {
    return memmem(text, length, " skelmor[", 9) != nullptr;
}

__attribute__((constructor)) void prepare() {
    place = std::getenv("CRASH_IN");
    if (place == nullptr)
        place = "";
    std::signal(SIGUSR2, [](int) { crashesLeft = std::strcmp(place, "twice") == 0 ? 2 : 1; });
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    const Locked locked(allocatorLock);
    mayCrashAllocating();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    const Locked locked(allocatorLock);
    mayCrashAllocating();
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    const Locked locked(allocatorLock);
    mayCrashAllocating();
    return __libc_realloc(block, size);
}

void free(void* block) {
    const Locked locked(allocatorLock);
    if (isNow("free"))
        crash();
    __libc_free(block);
}

ssize_t write(int fd, const void* text, std::size_t length) {
    const bool line = crashesLeft > 0 && isLogLine(text, length);
    if (line && isNow("log"))
        crash();
    const ssize_t written = syscall(SYS_write, fd, text, length);
    if (line && (isNow("logged") || isNow("twice")))
        crash();
    return written;
}

void syslog(int, const char*, ...) {
    const Locked locked(syslogLock);
    if (isNow("syslog"))
        crash();
}

// What hardened code calls.
void __syslog_chk(int, int, const char*, ...) {
    syslog(0, "%s", "");
}

void closelog() {
    const Locked locked(syslogLock);
}

} // extern "C"
