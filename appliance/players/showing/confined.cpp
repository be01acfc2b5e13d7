#include "appliance/players/showing/confined.h"

#include "appliance/confinement/confinement.h"
#include "appliance/screen/frame_store.h"

#include <libcommon/barriers.h>
#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/paths.h>
#include <libcommon/settings_copy.h>
#include <libcommon/status.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace player {
namespace {

constexpr mode_t sharedFile = 0660;
constexpr mode_t logMode = 0640;
constexpr mode_t sharedFolder = 0775;
constexpr std::uint16_t nameServicePort = 53;

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

std::string ownFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return folderOf(std::string(path, length < 0 ? 0 : static_cast<std::size_t>(length)));
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// A rule needs the file to exist.
std::string made(const std::string& path, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode);
    if (fd >= 0)
        close(fd);
    return path;
}

std::string madeFolder(const std::string& path) {
    mkdir(path.c_str(), sharedFolder);
    return path;
}

// Libraries and modules, what the C library reads to find hosts, and the number of processors.
std::vector<std::string> systemFiles() {
    return {"/usr/lib",
            "/usr/lib64",
            "/usr/local/lib",
            "/lib",
            "/lib64",
            "/usr/share/zoneinfo",
            "/usr/share/ca-certificates",
            "/usr/local/share/ca-certificates",
            "/etc/ssl",
            "/etc/ld.so.cache",
            "/etc/localtime",
            "/etc/hosts",
            "/etc/host.conf",
            "/etc/gai.conf",
            "/etc/nsswitch.conf",
            "/etc/resolv.conf",
            "/run/systemd/resolve",
            "/run/resolvconf",
            "/etc/services",
            "/etc/protocols",
            "/proc/cpuinfo",
            "/sys/devices/system/cpu",
            "/dev/null",
            "/dev/zero",
            "/dev/random",
            "/dev/urandom",
            ownFolder()};
}

void add(std::vector<std::string>& to, std::vector<std::string> more) {
    to.insert(to.end(), more.begin(), more.end());
}

// The folders are separated by colons.
void addFolders(std::vector<std::string>& to, std::string_view folders) {
    while (!folders.empty()) {
        const std::size_t end = std::min(folders.find(':'), folders.size());
        to.emplace_back(folders.substr(0, end));
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
}

// The stream of an mpeg4player tells by itself whether it has sound.
bool mayPlaySound(const PlayerOptions& options) {
    return options.audio || options.kind == Kind::mpeg4 || !options.audioHost.empty();
}

// ALSA mixes what several programs play, unless one of them has a device for itself.
bool mixes(std::string_view device) {
    return access("/dev/snd", F_OK) == 0 && !device.starts_with("pulse:") && !device.starts_with("file:") &&
           !device.starts_with("hw:");
}

// A sound card through ALSA, a sound server through its socket, or a file.
void addSound(confinement::Needs& needs) {
    constexpr std::string_view filePrefix = "file:";
    const std::string device = ParamWrapper(0, false)["Sound.Device"].toString();
    if (device.starts_with(filePrefix))
        needs.files.writable.push_back(made(device.substr(filePrefix.size()), S_IRUSR | S_IWUSR));
    needs.files.writable.push_back(made(libcommon::appliancePath("/run/decoder/sound.lock"), sharedFile));
    needs.files.devices.emplace_back("/dev/snd");
    add(needs.files.readable,
        {"/usr/share/alsa", "/etc/alsa", "/etc/asound.conf", "/etc/pulse", "/proc/asound"});
    if (const std::string home = environment("HOME"); !home.empty())
        add(needs.files.readable, {home + "/.asoundrc", home + "/.config/pulse"});
    if (const std::string session = environment("XDG_RUNTIME_DIR"); !session.empty())
        needs.files.readable.push_back(session + "/pulse");
    needs.soundCard = mixes(device);
}

confinement::Files filesFor(const PlayerOptions& options) {
    confinement::Files files;
    files.readable = systemFiles();
    addFolders(files.readable, environment("GST_PLUGIN_SYSTEM_PATH_1_0"));
    add(files.readable, {libcommon::appliancePath(libcommon::settingsFolder),
                         libcommon::appliancePath("/run/decoder/events.id"),
                         ParamWrapper(0, false)["Network.TLS.CAFile"].toString()});
    if (const std::string log = environment("LIBCOMMON_LOG"); !log.empty() && log != "stderr")
        files.writable.push_back(made(log, logMode));
    files.changing.push_back(madeFolder(folderOf(screen::FrameStore::appliancePath())));
    const libcommon::StatusPlace status = libcommon::makeStatusPlace(options.source);
    files.writable.push_back(status.lock);
    files.changing.push_back(status.folder);
    return files;
}

confinement::Queues queuesFor(const PlayerOptions& options) {
    confinement::Queues queues;
    if (options.alone)
        return queues;
    const libcommon::QueuesOfPlayer own = libcommon::sealAnnouncements();
    queues.received = own.barrier;
    queues.sent = own.events;
    queues.messages = {own.announcements[0], own.announcements[1]};
    queues.lowestMemoryEnd = own.lowestMemoryEnd;
    return queues;
}

// What is said about this: once for each supervisor, because players start at every switch. The file is opened before the
// player is confined.
class Said {
public:
    Said()
        : fd_(open(libcommon::appliancePath("/run/decoder/unconfined").c_str(),
                   O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, sharedFile)) {}
    ~Said() {
        if (fd_ >= 0)
            close(fd_);
    }
    Said(const Said&) = delete;
    Said& operator=(const Said&) = delete;

    // Whether a player of the same supervisor has said this; if not, it is from now on.
    bool before(const std::string& text) const {
        constexpr std::size_t longest = 256;
        const std::string line = (std::to_string(getppid()) + ' ' + text).substr(0, longest);
        char last[longest];
        const ssize_t length = pread(fd_, last, sizeof last, 0);
        if (length >= 0 && std::string_view(last, static_cast<std::size_t>(length)) == line)
            return true;
        if (ftruncate(fd_, 0) == 0 && pwrite(fd_, line.data(), line.size(), 0) < 0)
            logmsg(7, "A player can't note what it said. (errno=%d %s)", errno, std::strerror(errno));
        return false;
    }

private:
    const int fd_;
};

} // namespace

void confineSelf(const PlayerOptions& options) {
    if (!libcommon::readSettingsFromCopies() || ParamWrapper(0, false)["Player.Confined"] == "no")
        return;
    confinement::Needs needs;
    needs.files = filesFor(options);
    needs.queues = queuesFor(options);
    needs.connects = {options.port, nameServicePort};
    if (mayPlaySound(options))
        addSound(needs);
    const Said said;
    const confinement::Result result = confinement::confine(needs);
    const std::string open = confinement::whatStaysOpen(result);
    const bool importantOpen =
        result.files != confinement::Part::done || result.calls != confinement::Part::done;
    if (options.verbose && !open.empty())
        logmsg(7, "This player is not confined in everything: %s", open.c_str());
    else if (importantOpen && !said.before(open))
        logmsg(6, "Players are not confined in everything here: %s", open.c_str());
}

} // namespace player
