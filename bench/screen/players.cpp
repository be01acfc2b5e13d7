#include "bench/screen/players.h"

#include "bench/screen/streams.h"
#include "tests/support/programs.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {
namespace {

using appliance::Process;
using Command = std::vector<std::string>;

constexpr const char* nobody = "65534";

// The options that make each program answer as fast as it can.
Command mpvCommand(const Playing& playing) {
    Command command{findProgram("mpv"),
                    "--no-config",
                    "--no-terminal",
                    "--no-audio",
                    "--no-osc",
                    "--osd-level=0",
                    "--no-input-default-bindings",
                    "--profile=low-latency",
                    "--untimed",
                    "--cache=no",
                    "--vo=x11",
                    "--hwdec=no",
                    "--border=no",
                    "--keepaspect=no",
                    "--geometry=" + std::to_string(playing.width) + 'x' + std::to_string(playing.height) +
                        "+0+0"};
    if (const std::string transport = transportOf(playing.kind); !transport.empty())
        command.push_back("--rtsp-transport=" + transport);
    if (playing.kind == "sdp")
        command.emplace_back("--demuxer-lavf-o=protocol_whitelist=[http,tcp,udp,rtp]");
    return command;
}

Command mpvPlaying(const Playing& playing, int source) {
    Command command = mpvCommand(playing);
    command.push_back(urlOf(playing.kind, playing.hosts.at(static_cast<std::size_t>(source))));
    return command;
}

Command gstPlaying(const Playing& playing, int source) {
    Command command{findProgram("gst-launch-1.0"), "-q"};
    const std::string pipeline =
        pipelineOf(playing.kind, playing.codec, playing.hosts.at(static_cast<std::size_t>(source)));
    // A sink takes a screen of 720x576 for a television, whose pixels are not square.
    for (const std::string& word :
         wordsOf(pipeline + " ! videoconvert ! ximagesink pixel-aspect-ratio=1/1 sync=false"))
        command.push_back(word);
    return command;
}

// It refuses to run as root.
Command vlcCommand(const Playing& playing) {
    Command command;
    if (geteuid() == 0)
        command = {findProgram("setpriv"), "--reuid", nobody, "--regid", nobody, "--clear-groups"};
    for (const std::string& word :
         {findProgram("vlc"), std::string("--ignore-config"), std::string("--no-audio"),
          std::string("--no-osd"), std::string("--no-video-title-show"), std::string("--no-embedded-video"),
          std::string("--vout=xcb_x11"), std::string("--network-caching=0"), std::string("--live-caching=0"),
          std::string("--no-stats"), std::string("--clock-jitter=0"),
          "--width=" + std::to_string(playing.width), "--height=" + std::to_string(playing.height)})
        command.push_back(word);
    if (transportOf(playing.kind) == "tcp")
        command.emplace_back("--rtsp-tcp");
    if (transportOf(playing.kind) == "http")
        command.emplace_back("--rtsp-http");
    if (transportOf(playing.kind) == "udp_multicast")
        command.emplace_back("--rtsp-mcast");
    return command;
}

Command vlcPlaying(const Playing& playing, int source) {
    Command command = vlcCommand(playing);
    command.insert(command.end(),
                   {"-I", "dummy", urlOf(playing.kind, playing.hosts.at(static_cast<std::size_t>(source)))});
    return command;
}

std::unique_ptr<Process> startOn(const Playing& playing, const Command& command) {
    return std::make_unique<Process>(command,
                                     std::map<std::string, std::string>{{"DISPLAY", playing.display},
                                                                        {"WAYLAND_DISPLAY", ""},
                                                                        {"HOME", playing.folder},
                                                                        {"XDG_RUNTIME_DIR", playing.folder}},
                                     playing.folder + "/player.log");
}

// The new one is started over the old one.
class Overlapping : public Side {
public:
    using Make = std::function<Command(const Playing&, int source)>;
    Overlapping(Playing playing, Make make) : playing_(std::move(playing)), make_(std::move(make)) {}

    void show(int source) override {
        old_ = std::move(current_);
        current_ = startOn(playing_, make_(playing_, source));
    }
    void shown() override { old_.reset(); }
    void end() override {
        old_.reset();
        current_.reset();
    }

private:
    Playing playing_;
    Make make_;
    std::unique_ptr<Process> old_;
    std::unique_ptr<Process> current_;
};

// A socket to a program that takes commands, as soon as it listens.
int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            return fd;
        close(fd);
        appliance::pause(std::chrono::milliseconds(50));
    }
    return -1;
}

// One process that is told what to play next.
class Told : public Side {
public:
    using Order = std::function<std::string(const std::string& url)>;
    Told(Playing playing, Command command, std::string socket, Order order)
        : playing_(std::move(playing)), command_(std::move(command)), socket_(std::move(socket)),
          order_(std::move(order)) {}
    ~Told() override { end(); }
    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;

    void show(int source) override {
        if (process_ == nullptr)
            start();
        const std::string order =
            order_(urlOf(playing_.kind, playing_.hosts.at(static_cast<std::size_t>(source))));
        if (send(fd_, order.data(), order.size(), MSG_NOSIGNAL) < 0)
            throw std::runtime_error("the player takes no orders");
        // Its answers are of no use, but an unread socket would fill up.
        char answers[4096];
        while (recv(fd_, answers, sizeof answers, MSG_DONTWAIT) > 0) {
        }
    }
    void end() override {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
        process_.reset();
        std::filesystem::remove(socket_);
    }

private:
    void start() {
        process_ = startOn(playing_, command_);
        fd_ = connectTo(socket_);
        if (fd_ < 0)
            throw std::runtime_error("the player does not listen for orders");
    }

    Playing playing_;
    Command command_;
    std::string socket_;
    Order order_;
    std::unique_ptr<Process> process_;
    int fd_ = -1;
};

std::unique_ptr<Side> toldMpv(const Playing& playing) {
    const std::string socket = playing.folder + "/mpv";
    Command command = mpvCommand(playing);
    command.insert(command.end(), {"--idle=yes", "--input-ipc-server=" + socket});
    return std::make_unique<Told>(playing, command, socket, [](const std::string& url) {
        return R"({"command":["loadfile",")" + url + "\"]}\n";
    });
}

std::unique_ptr<Side> toldVlc(const Playing& playing) {
    const std::string socket = playing.folder + "/vlc";
    Command command = vlcCommand(playing);
    command.insert(command.end(), {"-I", "oldrc", "--rc-fake-tty", "--rc-unix=" + socket});
    return std::make_unique<Told>(playing, command, socket,
                                  [](const std::string& url) { return "clear\nadd " + url + '\n'; });
}

std::string programOf(const std::string& name) {
    return name == "gst-launch" ? "gst-launch-1.0" : name.substr(0, name.find('-'));
}

} // namespace

const std::vector<std::string>& peerNames() {
    static const std::vector<std::string> names{"mpv", "mpv-told", "gst-launch", "vlc", "vlc-told"};
    return names;
}

std::string whyNoPeer(const std::string& name, const Playing& playing) {
    if (findProgram(programOf(name)).empty())
        return programOf(name) + " is not installed";
    if (name == "gst-launch" && pipelineOf(playing.kind, playing.codec, "x").empty())
        return "no pipeline plays " + playing.kind;
    return "";
}

std::unique_ptr<Side> makePeer(const std::string& name, const Playing& playing) {
    if (name == "mpv-told")
        return toldMpv(playing);
    if (name == "vlc-told")
        return toldVlc(playing);
    const auto make = name == "mpv" ? mpvPlaying : name == "gst-launch" ? gstPlaying : vlcPlaying;
    return std::make_unique<Overlapping>(playing, make);
}

} // namespace bench
