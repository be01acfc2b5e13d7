#include "player/player_command.h"

#include "process/agreed_numbers.h"
#include "process/paths.h"
#include "process/process_state.h"
#include "recorder/recorded.h"
#include "sources/source_record.h"

#include <libcommon/log.h>
#include <libcommon/network.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace {

constexpr int execFailedStatus = 13;

class Builder {
public:
    Builder(SourceEntry entry, std::uint16_t port)
        : entry_(std::move(entry)), kind_(streamKind(entry_.detectedType)), port_(port),
          record_(readSource(entry_.index)) {}

    CommandLine build() {
        if (*kind_.player != '\0')
            add(kind_.player);
        addCredentials();
        addCommonOptions();
        switch (kind_.arguments) {
        case PlayerArguments::None:
            break;
        case PlayerArguments::Mjpeg:
            addMjpeg();
            break;
        case PlayerArguments::PortAndHost:
            add("-P", std::to_string(entry_.rtspPort), entry_.rtspHost);
            break;
        case PlayerArguments::Groups:
            addGroups();
            break;
        case PlayerArguments::Mpeg4:
            addMpeg4();
            break;
        }
        return std::move(line_);
    }

private:
    template<class... Texts>
    void add(Texts&&... texts) {
        (line_.arguments.emplace_back(std::forward<Texts>(texts)), ...);
    }

    void addCredentials() {
        if (entry_.connectMode != CONNECT_HTTP_AUTH && entry_.connectMode != CONNECT_HTTPS)
            return;
        add("-u", entry_.userName, "-p");
        line_.passwordIndex = line_.arguments.size();
        add(entry_.password);
    }

    void addCommonOptions() {
        if (kind_.type == TYPE_MJPEG && entry_.connectMode == CONNECT_HTTPS)
            add("-e");
        const bool pal = recorded::Parameters(0, true)["Decoder.VideoMode"] == "pal";
        add("-m", pal ? "pal" : "ntsc", "-o", "tv", "-n", std::to_string(entry_.index));
        if (process.verbosity > 1)
            add("-v");
        add("-r", std::to_string(playerPatience));
    }

    void addMjpeg() {
        if (entry_.audioAvailable)
            add("-a");
        add("-P", std::to_string(entry_.rtspPort), entry_.rtspHost);
        extendStreamOptions("Resolution", "&resolution=");
        extendStreamOptions("Compression", "&compression=");
        if (!entry_.streamOptions.empty())
            add("-t", entry_.streamOptions);
        std::string rotation = recorded::status(entry_.index, "ImageRotation");
        if (rotation.empty())
            rotation = "0";
        if (rotation == "180")
            add("-f");
        add("-i", interlaceMode(rotation));
    }

    // kept: the first option appended to an empty query is lost, only the "?" is added
    void extendStreamOptions(const char* key, const char* option) {
        const std::string& value = record_[key];
        if (value == "default")
            return;
        if (entry_.streamOptions.empty())
            entry_.streamOptions = "?";
        else
            entry_.streamOptions += option + value;
    }

    // Automatic becomes progressive where the lines of the two fields do not alternate: in a picture that is turned by
    // 90 degrees, and in the quad view.
    std::string interlaceMode(const std::string& rotation) {
        std::string mode = record_["InterlaceMode"].substr(0, 1);
        const bool quarterTurn = rotation == "90" || rotation == "270";
        if (mode == "a" && (quarterTurn || entry_.sourceNumber == 0))
            mode = "p";
        return mode;
    }

    void addGroups() {
        add(entry_.rtspHost, std::to_string(entry_.rtspPort));
        if (entry_.audioAvailable)
            add(entry_.audioHost, std::to_string(entry_.audioPort));
    }

    void addMpeg4() {
        add("-P", std::to_string(entry_.rtspPort));
        if (kind_.ports == PlayerPorts::OwnPair)
            add("-q", std::to_string(port_));
        add("-c", std::to_string(entry_.sourceNumber));
        add("-M", typeText(entry_.detectedType));
        add("-H", connectModeText(entry_.connectMode));
        add(entry_.rtspHost);
    }

    SourceEntry entry_;
    const StreamKind& kind_;
    std::uint16_t port_;
    SourceParams record_;
    CommandLine line_;
};

} // namespace

std::string CommandLine::text() const {
    std::string line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (i > 0)
            line += ' ';
        // By position, not by the "-p" before it: a user name may be "-p".
        line += i == passwordIndex ? "********" : arguments[i];
    }
    return line;
}

CommandLine buildCommandLine(SourceEntry entry, std::uint16_t port) {
    return Builder(std::move(entry), port).build();
}

PlayerCommand::PlayerCommand(CommandLine commandLine)
    : commandLine_(std::move(commandLine)), text_(commandLine_.text()),
      file_(underApplianceRoot(commandLine_.arguments.front())) {
    for (std::string& argument : commandLine_.arguments)
        argv_.push_back(argument.data());
    argv_.push_back(nullptr);
}

void PlayerCommand::execute() const {
    // Searches PATH for a bare name only.
    execvp(file_.c_str(), argv_.data());
    const int error = errno;
    // A thread of the supervisor may have held the log's lock at the fork. The alarm then ends the child without the
    // log line.
    std::signal(SIGALRM, [](int) { _exit(execFailedStatus); });
    alarm(2);
    logmsg(3, "Failed to execvp() (%d, '%s') using cmdline '%s'", error, std::strerror(error), text_.c_str());
    // Not exit(), which would print the supervisor's unflushed output a second time.
    _exit(execFailedStatus);
}
