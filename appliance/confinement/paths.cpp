#include "appliance/confinement/paths.h"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace confinement {
namespace {

// Landlock's later versions, which the headers of the distribution may not have yet.
constexpr std::uint64_t refer = 1ULL << 13U;               // version 2
constexpr std::uint64_t truncate = 1ULL << 14U;            // version 3
constexpr std::uint64_t portConnect = 1ULL << 1U;          // version 4
constexpr std::uint64_t portBind = 1ULL << 0U;             // version 4
constexpr std::uint64_t deviceControl = 1ULL << 15U;       // version 5
constexpr std::uint64_t scopeAbstractSockets = 1ULL << 0U; // version 6
constexpr std::uint64_t scopeSignals = 1ULL << 1U;         // version 6
constexpr int portRule = 2;
constexpr int versionWithPorts = 4;

struct Ruleset {
    std::uint64_t files;
    std::uint64_t ports;
    std::uint64_t scopes;
};

struct PortRule {
    std::uint64_t access;
    std::uint64_t port;
};

constexpr std::uint64_t readAccess = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t writeAccess = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | truncate;
constexpr std::uint64_t changeAccess =
    readAccess | writeAccess | LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_REMOVE_FILE;
constexpr std::uint64_t deviceAccess = readAccess | LANDLOCK_ACCESS_FS_WRITE_FILE | deviceControl;
// What a rule for something that is no folder may have.
constexpr std::uint64_t fileAccess = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE |
                                     LANDLOCK_ACCESS_FS_READ_FILE | truncate | deviceControl;

constexpr std::uint64_t allInVersion1 = (1ULL << 13U) - 1;

// Every right that the kernel knows is handled, so that a right without a rule is refused.
Ruleset handledBy(int version, bool anyPort) {
    Ruleset rules{.files = allInVersion1, .ports = 0, .scopes = 0};
    if (version >= 2)
        rules.files |= refer;
    if (version >= 3)
        rules.files |= truncate;
    if (version >= versionWithPorts && !anyPort)
        rules.ports = portBind | portConnect;
    if (version >= 5)
        rules.files |= deviceControl;
    if (version >= 6)
        rules.scopes = scopeAbstractSockets | scopeSignals;
    return rules;
}

std::size_t sizeFor(int version) {
    if (version >= 6)
        return sizeof(Ruleset);
    return version >= versionWithPorts ? offsetof(Ruleset, scopes) : offsetof(Ruleset, ports);
}

class Rules {
public:
    Rules(int version, bool anyPort)
        : handled_(handledBy(version, anyPort)),
          fd_(static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled_, sizeFor(version), 0))) {}
    ~Rules() {
        if (fd_ >= 0)
            close(fd_);
    }
    Rules(const Rules&) = delete;
    Rules& operator=(const Rules&) = delete;

    void allow(const std::vector<std::string>& paths, std::uint64_t access) const {
        for (const std::string& path : paths)
            allow(path, access);
    }
    void allowPort(std::uint16_t port) const {
        const PortRule rule{.access = portConnect, .port = port};
        syscall(SYS_landlock_add_rule, fd_, portRule, &rule, 0);
    }
    bool restrict() const { return fd_ >= 0 && syscall(SYS_landlock_restrict_self, fd_, 0) == 0; }

private:
    void allow(const std::string& path, std::uint64_t access) const {
        const int fd = open(path.c_str(), O_PATH | O_CLOEXEC);
        struct stat file {};
        if (fd < 0)
            return;
        if (fstat(fd, &file) == 0) {
            access &= S_ISDIR(file.st_mode) ? ~std::uint64_t{0} : fileAccess;
            landlock_path_beneath_attr rule{};
            rule.allowed_access = access & handled_.files;
            rule.parent_fd = fd;
            syscall(SYS_landlock_add_rule, fd_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
        }
        close(fd);
    }

    const Ruleset handled_;
    const int fd_;
};

} // namespace

void confinePaths(const Needs& needs, Result& result) {
    const int version =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
    result.files = Part::unknownToKernel;
    result.ports = Part::unknownToKernel;
    if (version < 1)
        return;
    const Rules rules(version, needs.anyPort);
    rules.allow(needs.files.readable, readAccess);
    rules.allow(needs.files.writable, writeAccess);
    rules.allow(needs.files.changing, changeAccess);
    rules.allow(needs.files.devices, deviceAccess);
    if (needs.soundCard)
        rules.allow(std::vector<std::string>{"/tmp"},
                    LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_REMOVE_FILE);
    if (version >= versionWithPorts && !needs.anyPort)
        for (const std::uint16_t port : needs.connects)
            rules.allowPort(port);
    result.files = rules.restrict() ? Part::done : Part::failed;
    if (version >= versionWithPorts)
        result.ports = result.files;
}

} // namespace confinement
