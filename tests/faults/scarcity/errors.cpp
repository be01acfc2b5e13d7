#include "tests/faults/scarcity/errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <map>

namespace faults {

namespace {

using Errors = std::vector<int>;

const std::map<std::string, Errors>& table() {
    static const std::map<std::string, Errors> all{
        // Files.
        {"openat", {EACCES, EMFILE, ENFILE, ENOMEM, EIO}},
        {"open", {EACCES, EMFILE, ENFILE, ENOMEM, EIO}},
        {"read", {EIO, EINTR}},
        {"pread64", {EIO, EINTR}},
        {"readv", {EIO, EINTR}},
        {"write", {ENOSPC, EIO, EINTR}},
        {"pwrite64", {ENOSPC, EIO, EINTR}},
        {"writev", {ENOSPC, EIO}},
        {"close", {EIO}},
        {"fstat", {EIO, ENOMEM}},
        {"stat", {EIO, EACCES}},
        {"lstat", {EIO, EACCES}},
        {"newfstatat", {EIO, EACCES}},
        {"statx", {EIO, EACCES}},
        {"access", {EIO, EACCES}},
        {"faccessat", {EIO, EACCES}},
        {"readlink", {EIO, EACCES}},
        {"getdents64", {EIO, ENOENT}},
        {"mkdir", {ENOSPC, EROFS, EACCES}},
        {"unlink", {EIO, EROFS, EACCES}},
        {"rename", {ENOSPC, EROFS, EIO}},
        {"rmdir", {EIO, EROFS}},
        {"ftruncate", {EIO, ENOSPC}},
        {"fallocate", {ENOSPC, EOPNOTSUPP}},
        {"fchmod", {EPERM, EIO}},
        {"fchown", {EPERM, EIO}},
        {"chmod", {EPERM, EIO}},
        {"fsync", {EIO, ENOSPC}},
        {"fdatasync", {EIO, ENOSPC}},
        {"utimensat", {EPERM, EIO}},
        {"flock", {EINTR, ENOLCK}},
        {"inotify_init1", {EMFILE, ENOMEM}},
        {"inotify_add_watch", {ENOSPC, ENOMEM}},
        // Memory. A failure of brk is no error number; malloc then asks mmap.
        {"mmap", {ENOMEM}},
        {"mprotect", {ENOMEM}},
        {"mremap", {ENOMEM}},
        {"memfd_create", {EMFILE, ENOMEM}},
        // Processes and threads. A signal to a child of its own can't fail, nor the removal of a queue of its own.
        {"clone", {EAGAIN, ENOMEM}},
        {"clone3", {EAGAIN, ENOMEM}},
        {"fork", {EAGAIN, ENOMEM}},
        {"vfork", {EAGAIN, ENOMEM}},
        {"wait4", {EINTR, ECHILD}},
        // Queues and semaphores.
        {"msgget", {ENOSPC, ENOMEM, EACCES}},
        {"msgsnd", {EAGAIN, EIDRM, EINTR, ENOMEM}},
        {"msgrcv", {EINTR, EIDRM, ENOMEM}},
        {"semget", {ENOSPC, ENOMEM, EACCES}},
        {"semop", {EINTR, EIDRM, ENOMEM}},
        {"semtimedop", {EINTR, EIDRM, ENOMEM, EAGAIN}},
        {"semctl", {EIDRM, EACCES}},
        // Network.
        {"socket", {EMFILE, ENFILE, ENOBUFS, EAFNOSUPPORT}},
        {"socketpair", {EMFILE, ENFILE}},
        {"connect", {ECONNREFUSED, ENETUNREACH, EADDRNOTAVAIL, ETIMEDOUT}},
        {"bind", {EADDRINUSE, EACCES}},
        {"listen", {EADDRINUSE}},
        {"accept4", {EMFILE, ECONNABORTED, ENOBUFS}},
        {"sendto", {ECONNRESET, ENOBUFS, EINTR}},
        {"sendmsg", {ECONNRESET, ENOBUFS, EINTR}},
        {"sendmmsg", {ENETUNREACH, ENOBUFS}},
        {"recvfrom", {ECONNRESET, EINTR, ENOMEM}},
        {"recvmsg", {ECONNRESET, EINTR, ENOMEM}},
        {"setsockopt", {ENOPROTOOPT, ENOMEM}},
        {"getsockopt", {ENOMEM}},
        {"getsockname", {ENOBUFS}},
        {"getpeername", {ENOTCONN}},
        {"pipe2", {EMFILE, ENFILE}},
        {"pipe", {EMFILE, ENFILE}},
        {"eventfd2", {EMFILE, ENOMEM}},
        {"epoll_create1", {EMFILE, ENOMEM}},
        {"epoll_ctl", {ENOMEM, ENOSPC}},
        {"timerfd_create", {EMFILE, ENOMEM}},
        {"fcntl", {EAGAIN}},
        {"dup", {EMFILE}},
        // Waits.
        {"poll", {EINTR, ENOMEM}},
        {"ppoll", {EINTR, ENOMEM}},
        {"select", {EINTR, ENOMEM}},
        {"pselect6", {EINTR, ENOMEM}},
        {"epoll_wait", {EINTR}},
        {"epoll_pwait", {EINTR}},
        {"nanosleep", {EINTR}},
        {"clock_nanosleep", {EINTR}},
        // Others.
        {"getrandom", {EAGAIN, ENOSYS}},
        {"sigaltstack", {ENOMEM}},
        {"prctl", {EINVAL}},
    };
    return all;
}

// Only a wait can be interrupted.
bool isWait(const Call& call) {
    const auto operation = call.arguments[1] & FUTEX_CMD_MASK;
    return operation == FUTEX_WAIT || operation == FUTEX_WAIT_BITSET;
}

bool creates(const Call& call, const std::string& name) {
    const std::uint64_t flags = name == "openat" ? call.arguments[2] : call.arguments[1];
    return (flags & O_CREAT) != 0;
}

} // namespace

std::vector<int> likelyErrors(const Call& call) {
    const std::string name = callName(call.number);
    if (name == "futex") {
        return isWait(call) ? Errors{EINTR} : Errors{};
    }
    const auto found = table().find(name);
    Errors errors = found == table().end() ? Errors{} : found->second;
    if ((name == "openat" || name == "open") && creates(call, name)) {
        errors.push_back(ENOSPC);
        errors.push_back(EROFS);
    }
    return errors;
}

std::string errorName(int error) {
    const char* name = strerrorname_np(error);
    return name == nullptr ? std::to_string(error) : name;
}

} // namespace faults
