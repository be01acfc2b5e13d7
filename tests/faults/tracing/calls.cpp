// Texts of system calls.
#include "tests/faults/tracing/tracer.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace faults {

namespace {

#define CALL(name)                                                                                           \
    { SYS_##name, #name }

const std::map<std::uint64_t, std::string>& names() {
    static const std::map<std::uint64_t, std::string> all {
        CALL(accept4), CALL(bind), CALL(brk), CALL(clock_nanosleep), CALL(clone), CALL(clone3), CALL(close),
            CALL(connect), CALL(dup), CALL(epoll_create1), CALL(epoll_ctl), CALL(epoll_pwait), CALL(eventfd2),
            CALL(execve), CALL(exit), CALL(exit_group), CALL(faccessat), CALL(fallocate), CALL(fchmod),
            CALL(fchown), CALL(fcntl), CALL(fdatasync), CALL(flock), CALL(fstat), CALL(fstatfs), CALL(fsync),
            CALL(ftruncate), CALL(futex), CALL(getcwd), CALL(getdents64), CALL(getegid), CALL(geteuid),
            CALL(getgid), CALL(getpeername), CALL(getpid), CALL(getrandom), CALL(getsockname),
            CALL(getsockopt), CALL(gettid), CALL(getuid), CALL(inotify_add_watch), CALL(inotify_init1),
            CALL(ioctl), CALL(kill), CALL(linkat), CALL(listen), CALL(lseek), CALL(madvise),
            CALL(memfd_create), CALL(mkdirat), CALL(mlockall), CALL(mmap), CALL(mprotect), CALL(mremap),
            CALL(msgctl), CALL(msgget), CALL(msgrcv), CALL(msgsnd), CALL(munmap), CALL(nanosleep),
            CALL(newfstatat), CALL(openat), CALL(pipe2), CALL(ppoll), CALL(prctl), CALL(pread64),
            CALL(prlimit64), CALL(pselect6), CALL(pwrite64), CALL(read), CALL(readlinkat), CALL(readv),
            CALL(recvfrom), CALL(recvmsg), CALL(renameat), CALL(renameat2), CALL(rseq), CALL(rt_sigaction),
            CALL(rt_sigpending), CALL(rt_sigprocmask), CALL(rt_sigreturn), CALL(rt_sigtimedwait),
            CALL(sched_getaffinity), CALL(sched_yield), CALL(sched_setscheduler), CALL(semctl), CALL(semget),
            CALL(semop), CALL(semtimedop), CALL(sendmmsg), CALL(sendmsg), CALL(sendto), CALL(set_robust_list),
            CALL(set_tid_address), CALL(setpgid), CALL(setpriority), CALL(setsockopt), CALL(shutdown),
            CALL(sigaltstack), CALL(socket), CALL(socketpair), CALL(statfs), CALL(statx), CALL(symlinkat),
            CALL(tgkill), CALL(timerfd_create), CALL(timerfd_settime), CALL(umask), CALL(uname),
            CALL(unlinkat), CALL(utimensat), CALL(vfork), CALL(wait4), CALL(waitid), CALL(write),
            CALL(writev),
#if defined(__x86_64__)
            CALL(access), CALL(alarm), CALL(arch_prctl), CALL(chmod), CALL(dup2), CALL(fork), CALL(link),
            CALL(lstat), CALL(mkdir), CALL(open), CALL(pipe), CALL(poll), CALL(readlink), CALL(rename),
            CALL(rmdir), CALL(select), CALL(stat), CALL(symlink), CALL(unlink), CALL(epoll_wait), CALL(mknod),
            CALL(chown),
#endif
    };
    return all;
}

#undef CALL

// Numbers of two digits and more: process numbers, times.
std::string withoutNumbers(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = i;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
            ++end;
        }
        if (end - i >= 2) {
            result += 'N';
            i = end;
        } else {
            result += text[i++];
        }
    }
    return result;
}

std::string below(const std::string& root, const std::string& path) {
    if (!root.empty() && path.compare(0, root.size(), root) == 0) {
        return path.substr(root.size());
    }
    return path;
}

std::string fileOf(const Call& call, std::uint64_t descriptor) {
    const std::string link =
        "/proc/" + std::to_string(call.process) + "/fd/" + std::to_string(static_cast<int>(descriptor));
    char target[PATH_MAX] = {};
    return readlink(link.c_str(), target, sizeof target - 1) < 0 ? "" : target;
}

// Which argument is what.
int pathArgument(const std::string& name) {
    static const std::map<std::string, int> all{
        {"open", 0},      {"stat", 0},     {"lstat", 0},      {"access", 0},      {"mkdir", 0},
        {"unlink", 0},    {"rename", 1},   {"readlink", 0},   {"execve", 0},      {"link", 1},
        {"symlink", 1},   {"rmdir", 0},    {"chmod", 0},      {"chown", 0},       {"mknod", 0},
        {"statfs", 0},    {"openat", 1},   {"newfstatat", 1}, {"faccessat", 1},   {"mkdirat", 1},
        {"unlinkat", 1},  {"renameat", 3}, {"renameat2", 3},  {"readlinkat", 1},  {"linkat", 3},
        {"symlinkat", 2}, {"statx", 1},    {"utimensat", 1},  {"memfd_create", 0}};
    const auto found = all.find(name);
    return found == all.end() ? -1 : found->second;
}

bool usesDescriptor(const std::string& name) {
    static const std::map<std::string, bool> all{
        {"read", true},      {"write", true},      {"pread64", true},
        {"pwrite64", true},  {"fstat", true},      {"close", true},
        {"fchmod", true},    {"fchown", true},     {"ftruncate", true},
        {"flock", true},     {"fsync", true},      {"fdatasync", true},
        {"lseek", true},     {"getdents64", true}, {"fcntl", true},
        {"writev", true},    {"readv", true},      {"ioctl", true},
        {"fallocate", true}, {"newfstatat", true}, {"inotify_add_watch", true}};
    return all.count(name) != 0;
}

} // namespace

std::string callName(std::uint64_t number) {
    const auto found = names().find(number);
    return found == names().end() ? "call-" + std::to_string(number) : found->second;
}

std::string textAt(pid_t process, std::uint64_t address) {
    std::string text;
    constexpr std::size_t longest = 4095;
    constexpr std::uint64_t page = 4096;
    while (address != 0 && text.size() < longest) {
        char part[256];
        // Not across the end of a page: the next one may not exist.
        const std::size_t room = std::min<std::uint64_t>(sizeof part, page - address % page);
        iovec here{part, room};
        iovec there{reinterpret_cast<void*>(address), room};
        const ssize_t got = process_vm_readv(process, &here, 1, &there, 1, 0);
        for (ssize_t i = 0; i < got; ++i) {
            if (part[i] == '\0') {
                return text;
            }
            text += part[i];
        }
        if (got <= 0) {
            return text;
        }
        address += static_cast<std::uint64_t>(got);
    }
    return text;
}

std::string describe(const Call& call, const std::string& root) {
    const std::string name = callName(call.number);
    const int path = pathArgument(name);
    std::string object = path < 0 ? "" : textAt(call.process, call.arguments[path]);
    if (object.empty() && usesDescriptor(name)) {
        object = fileOf(call, call.arguments[0]);
    }
    object = withoutNumbers(below(root, object));
    return object.empty() ? name : name + ' ' + object;
}

} // namespace faults
