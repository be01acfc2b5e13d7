#include "appliance/ctl/ctl_command_line.h"

#include <CLI/CLI.hpp>

#include <ostream>
#include <vector>

namespace {

constexpr const char* sourceHelp = "A source: its number, its name, or the beginning of its name";

// The subcommands; parsing fills `request` and collects the words of an alarm text in `words`.
class CommandLine {
public:
    CommandLine() : app_("Talks to the network video decoder of this machine.", "decoderctl") {
        app_.footer("Exit status: 0 done, 1 refused or failed, 2 usage.\n"
                    "The decoder is the one below the directory in APPLIANCE_ROOT. Without it: the installed "
                    "one, in\n"
                    "/var/lib/decoder, or if there is none, the one below /.");
        app_.set_version_flag("--version", HOUSE_VERSION);
        app_.add_flag("--json", request.json, "Answer in JSON, for programs");
        app_.add_option("--root", request.root, "The appliance's root directory, instead of APPLIANCE_ROOT")
            ->type_name("DIR");
        addFleet();
        app_.require_subcommand(0, 1);
        app_.fallthrough();
        addReports();
        addEvents();
        addParameters();
        addSources();
        addCameras();
        addPanel();
    }

    CLI::App& app() { return app_; }

    Request request;
    std::vector<std::string> words;

private:
    CLI::App* add(Command command, const char* name, const char* help) {
        CLI::App* added = app_.add_subcommand(name, help);
        added->callback([this, command] { request.command = command; });
        return added;
    }

    void addFleet() {
        CLI::Option* broker =
            app_.add_option(
                    "--fleet", request.fleet.broker,
                    "status, select and alarm for all decoders of this MQTT broker: "
                    "mqtt://[USER:PASSWORD@]HOST[:PORT][/SITE], or \"own\" for the broker of this decoder")
                ->type_name("BROKER");
        CLI::Option* group =
            app_.add_option("--group", request.fleet.group, "With --fleet: only the decoders of this group")
                ->type_name("GROUP")
                ->needs(broker);
        app_.add_option("--decoder", request.fleet.decoders,
                        "With --fleet: only this decoder; may be repeated")
            ->type_name("NAME")
            ->expected(1, -1)
            ->allow_extra_args(false)
            ->needs(broker)
            ->excludes(group);
        app_.add_option("--ca-file", request.fleet.caFile,
                        "With --fleet: the authorities for the broker's certificate (PEM)")
            ->type_name("FILE")
            ->needs(broker);
    }

    void addReports() {
        add(Command::Status, "status", "What the decoder does now: mode, source, picture, texts, LED");
        CLI::App* sources = add(Command::Sources, "sources",
                                "The configured sources, one per line; the current one has an asterisk");
        sources->add_flag("--names", request.names, "Print only the names");
        CLI::App* source =
            add(Command::Source, "source", "Everything known about one source, as Key=value lines");
        source->add_option("N", request.source, sourceHelp)->required();
        CLI::App* explain = add(Command::Explain, "explain",
                                "Why a source is played as it is: the steps of its last detection");
        explain->add_option("N", request.source, sourceHelp)->required();
        CLI::App* snapshot =
            add(Command::Snapshot, "snapshot", "Save what the monitor shows now as a PNG picture");
        snapshot->add_option("FILE", request.file, "The file to write; \"-\" is standard output")->required();
        snapshot->add_option("--size", request.size, "The size of its screen (default: that of the monitor)")
            ->type_name("WIDTHxHEIGHT");
        CLI::App* report = add(Command::Report, "report",
                               "Save an archive for a bug report: what is known about the decoder, without "
                               "passwords");
        report->add_option("FILE", request.file,
                           "The archive (tar.gz) to write; \"-\" is standard output (default: "
                           "decoder-report-TIME.tar.gz)");
        CLI::App* watch =
            add(Command::Watch, "watch",
                "Print a line for each change of connection, source, texts, LED and frame rate");
        watch->add_option("--seconds", request.seconds, "Stop after this time (default: until Ctrl-C)")
            ->check(CLI::Range(0.0, 1e9))
            ->type_name("S");
    }

    void addEvents() {
        CLI::App* select = add(Command::Select, "select", "Show a source");
        select->add_option("N", request.source, sourceHelp)->required();
        CLI::App* alarm =
            add(Command::Alarm, "alarm", "Raise an alarm: in manual mode its source shows, with the text");
        alarm->add_option("N", request.source, sourceHelp)->required();
        alarm->add_option("TEXT", words, "Up to 39 bytes of UTF-8; a longer text is cut")
            ->take_all()
            ->expected(0, -1);
        add(Command::Lock, "lock", "Stop playing for ten seconds");
        add(Command::Reconnect, "reconnect", "End a lock now");
        add(Command::Flush, "flush", "Forget what was detected: every encoder is asked again");
        addWait(add(Command::Connect, "connect", "Start playing"));
        addWait(add(Command::Disconnect, "disconnect", "Stop playing until connect, select or the button"));
        CLI::App* button = add(Command::Button, "button", "Press the video-select button");
        button->add_flag("--hold", request.hold, "Hold it instead: disconnects");
        add(Command::Mute, "mute", "Mute the sound");
        add(Command::Unmute, "unmute", "Play the sound again");
        CLI::App* volume = add(Command::Volume, "volume", "Set the volume of the sound");
        volume->add_option("PERCENT", request.volume, "0 to 100")->required()->check(CLI::Range(0, 100));
        add(Command::Sweep, "sweep",
            "Remove what dead decoders left behind: players, barriers, queues, semaphores, files; refused "
            "while one runs");
    }

    void addWait(CLI::App* command) {
        command
            ->add_option("--wait", request.wait,
                         "Wait up to S seconds until it has happened (default 15; 0: do not wait)")
            ->check(CLI::Range(0.0, 86400.0))
            ->type_name("S");
    }

    void addParameters() {
        CLI::App* parameters = add(Command::Parameters, "parameters",
                                   "All parameters: what each takes, and when a new value is in force");
        parameters->add_flag("--names", request.names, "Print only the names");
        parameters->add_option("--values", request.name, "Print the words that this parameter takes")
            ->type_name("NAME");
        CLI::App* get = add(Command::Get, "get", "Print a parameter's value");
        get->add_option("NAME", request.name,
                        "Such as Decoder.SequenceMode or \"Encoder.Front door.Address\"")
            ->required();
        CLI::App* set = add(Command::Set, "set", "Write a parameter, and say when the value is in force");
        set->add_option("NAME", request.name,
                        "Such as Decoder.SequenceMode or \"Encoder.Front door.Address\"")
            ->required();
        set->add_option("VALUE", request.value,
                        "The value; \"\" clears it, \"-\" reads it from standard input (for passwords)")
            ->required();
        set->add_flag("--force", request.force, "Also write names and values that the decoder does not know");
        add(Command::Apply, "apply",
            "Bring the configuration into force now: disconnect, ask every encoder again, connect");
        CLI::App* check =
            add(Command::Check, "check",
                "Find the mistakes in a parameter file, with line, reason and remedy; exit status 1 when "
                "there are any");
        check->add_option("FILE", request.file,
                          "The file (default: the decoder's own); \"-\" is standard input");
    }

    void addCameras() {
        DiscoverRequest& wanted = request.discover;
        CLI::App* discover =
            add(Command::Discover, "discover",
                "Find ONVIF cameras in the local network: their names, addresses and streams");
        discover->add_option("ADDRESS", wanted.address, "Ask this camera only: HOST or HOST:PORT");
        discover->add_option("--timeout", wanted.timeout, "The time for everything (default 10)")
            ->check(CLI::Range(1.0, 600.0))
            ->type_name("SECONDS");
        discover->add_option("--interface", wanted.interface, "Search this network interface only")
            ->type_name("NAME");
        CLI::Option* user =
            discover->add_option("--user", wanted.user, "The cameras' user name; the password is asked for")
                ->type_name("NAME");
        discover->add_flag("--password-stdin", wanted.passwordStdin, "Read the password from standard input")
            ->needs(user);
    }

    void addNoApply(CLI::App* command) {
        command->add_flag_callback(
            "--no-apply", [this] { request.apply = false; },
            "Leave a decoder that plays as it is; it uses the change when it connects next");
    }

    void addSources() {
        CLI::App* added =
            add(Command::Add, "add", "Add a camera by its URL: checks that it plays, says what it is");
        added->add_option("NAME", request.name, "The name of the new source");
        CLI::Option* url = added->add_option(
            "URL", request.url,
            "rtsp://HOST/PATH, rtsps://, http://, https://, srt://HOST:PORT, file:///PATH or /dev/video0; a "
            "password in it is hidden from the process list");
        added
            ->add_option("--sub", request.subUrl,
                         "The URL of a smaller stream of the camera, for small screens")
            ->type_name("URL")
            ->needs(url);
        CLI::Option* found =
            added
                ->add_option(
                    "--from-discovery", request.found,
                    "Instead of a URL: the number of a camera in the last discover; without a NAME its own")
                ->check(CLI::Range(1, 100000))
                ->type_name("N")
                ->excludes(url);
        added
            ->add_option("--profile", request.profile,
                         "Which of its streams: main (the default), sub, or the name of a profile")
            ->type_name("NAME")
            ->needs(found);
        added->add_option("--user", request.user, "The camera's user name; the password is asked for")
            ->type_name("NAME");
        added->add_flag("--password-stdin", request.passwordInput, "Read the password from standard input");
        added->add_flag("--unchecked", request.unchecked, "Add it without connecting to the camera");
        addNoApply(added);
        CLI::App* removed = add(Command::Remove, "remove", "Remove a source");
        removed->add_option("N", request.source, sourceHelp)->required();
        addNoApply(removed);
        CLI::App* renamed = add(Command::Rename, "rename", "Give a source another name");
        renamed->add_option("N", request.source, sourceHelp)->required();
        renamed->add_option("NAME", request.name, "The new name")->required();
        addNoApply(renamed);
        CLI::App* ordered =
            add(Command::Order, "order", "Put sources first, in this order; the others follow as they are");
        ordered->add_option("N", request.sources, sourceHelp)->required()->expected(1, -1);
        addNoApply(ordered);
    }

    void addPanel() {
        add(Command::PanelOpen, "panel-open",
            "Print a link to the panel that logs in once, within ten minutes");
        CLI::App* password = add(Command::PanelPassword, "panel-password",
                                 "Make an account of the panel, or give it a new password; the password is "
                                 "asked for");
        password->add_option("NAME", request.name, "The account (default: admin)");
        password->add_option("--role", request.role, "viewer, operator or admin (default: admin)")
            ->type_name("ROLE");
        password->add_flag("--remove", request.remove, "Remove the account instead");
        CLI::App* token = add(Command::PanelToken, "panel-token", "Make a token for a program, and print it");
        token->add_option("NAME", request.name, "The name of the token")->required();
        token->add_option("--role", request.role, "viewer, operator, admin, alarm or metrics")
            ->type_name("ROLE")
            ->required();
        token->add_option("--days", request.days, "It expires after that many days (default: never)")
            ->check(CLI::Range(1, 36500))
            ->type_name("N");
        CLI::App* tokens = add(Command::PanelTokens, "panel-tokens",
                               "The tokens: name, role, until when; not the tokens themselves");
        tokens
            ->add_option_function<std::string>(
                "--remove",
                [this](const std::string& name) {
                    request.remove = true;
                    request.name = name;
                },
                "Remove the token of this name")
            ->type_name("NAME");
    }

    CLI::App app_;
};

bool isForFleets(Command command) {
    return command == Command::Status || command == Command::Select || command == Command::Alarm;
}

} // namespace

std::variant<Request, int> parseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                            std::ostream& errors) {
    CommandLine line;
    try {
        line.app().parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return line.app().exit(error, out, errors) == 0 ? 0 : usageStatus;
    }
    if (line.app().get_subcommands().empty()) {
        errors << "A command is missing.\nRun with --help for the list.\n";
        return usageStatus;
    }
    if (line.request.command == Command::Add && line.request.found == 0 && line.request.url.empty()) {
        errors << "add needs NAME and URL, or --from-discovery N.\nRun with --help for more.\n";
        return usageStatus;
    }
    if (!line.request.fleet.broker.empty() && !isForFleets(line.request.command)) {
        errors << "--fleet is for status, select and alarm.\nRun with --help for more.\n";
        return usageStatus;
    }
    for (const std::string& word : line.words) {
        line.request.text += (line.request.text.empty() ? "" : " ") + word;
    }
    return line.request;
}
