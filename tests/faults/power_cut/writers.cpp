// decoderctl, the gateway and the panel.
#include "tests/faults/power_cut/writer.h"

#include "tests/appliance/process.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace faults {

namespace {

namespace fs = std::filesystem;
using appliance::eventually;
using appliance::readFile;
using appliance::runToEnd;
using appliance::Seconds;
using appliance::writeFile;

constexpr Seconds patience{30};

const std::string configuration =
    "[Decoder]\nVideoMode = pal\nSequenceMode = manual\n"
    "[Network.eth0]\nIPAddress = 10.0.0.1\n"
    "[Panel]\nTLS = own\n"
    "[Encoder.Alpha]\nName = Alpha\nAddress = 127.0.0.1:9\n"
    "[Encoder.Beta]\nName = Beta\nURL = rtsp://127.0.0.1:9/x\nUserName = viewer\n";

std::string program(const std::string& name) {
    return std::string(HOUSE_PROGRAMS) + '/' + name;
}

// An appliance root without a running decoder.
class Root {
public:
    Root() {
        std::string base = fs::temp_directory_path() / "power cut-XXXXXX";
        if (mkdtemp(base.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        path_ = base;
        for (const char* folder : {"etc/decoder", "run/decoder", "var/tmp", "var/log"})
            fs::create_directories(fs::path(path_) / folder);
        writeFile(file("/etc/decoder/decoder.conf"), configuration);
        chmod(file("/etc/decoder/decoder.conf").c_str(), 0640);
    }
    ~Root() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + name; }
    std::string parameters() const { return readFile(file("/etc/decoder/decoder.conf")); }
    std::map<std::string, std::string> environment() const {
        return {{"APPLIANCE_ROOT", path_}, {"LIBCOMMON_LOG", file("/var/log/decoder.log")}};
    }

private:
    std::string path_;
};

std::string ended(const std::vector<std::string>& command, const Root& root) {
    const appliance::Finished done = runToEnd(command, root.environment(), patience);
    return done.status == 0 ? "" : command.back() + " fails: " + done.output + done.errors;
}

// A program that ends by itself.
class Command : public Writer {
public:
    explicit Command(std::vector<std::string> words) : words_(std::move(words)) {}

    std::string root() const override { return root_.path(); }
    std::vector<std::string> command() const override { return words_; }
    std::map<std::string, std::string> environment() const override { return root_.environment(); }
    std::string output() const override { return root_.file("/var/log/output"); }
    void use(Traced& program) override { program.waitForEnd(patience.count()); }

protected:
    Root root_;
    std::vector<std::string> words_;
};

// ---- The parameter file: it is the old one or the new one, byte by byte, and the same command then makes it the new one.
class ParameterCommand : public Command {
public:
    explicit ParameterCommand(const std::vector<std::string>& words) : Command(words) {
        const Root other;
        if (const std::string failure = ended(words, other); !failure.empty())
            throw std::runtime_error(failure);
        new_ = other.parameters();
        if (new_ == configuration)
            throw std::runtime_error(words.back() + " changes nothing");
    }

    std::string nextFails() override {
        const std::string now = root_.parameters();
        if (now != configuration && now != new_)
            return "the parameter file is neither the old nor the new one: " + now;
        if (const std::string failure = ended({program("decoderctl"), "sources"}, root_); !failure.empty())
            return failure;
        runToEnd(words_, root_.environment(), patience); // refused where nothing is left to do
        return root_.parameters() == new_ ? ""
                                          : "the same command again does not write it: " + root_.parameters();
    }

private:
    std::string new_;
};

// ---- Accounts and tokens: old lines stay as they are, a line is there as a whole or not at all.

std::vector<std::string> entriesOf(const std::string& file) {
    std::istringstream lines(readFile(file));
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with('#'))
            all.push_back(line);
    return all;
}

std::size_t wordsOf(const std::string& line) {
    std::istringstream words(line);
    std::size_t count = 0;
    for (std::string word; words >> word;)
        ++count;
    return count;
}

class SecretCommand : public Command {
public:
    // Each entry has so many words.
    SecretCommand(const std::string& file, std::size_t words, const std::vector<std::string>& first,
                  const std::vector<std::string>& second, const std::vector<std::string>& third)
        : Command(second), file_(root_.file(file)), entryWords_(words), another_(third) {
        if (const std::string failure = ended(first, root_); !failure.empty())
            throw std::runtime_error(failure);
        old_ = entriesOf(file_);
    }

    std::string nextFails() override {
        const std::string text = readFile(file_);
        const std::vector<std::string> now = entriesOf(file_);
        if (!text.ends_with('\n') || now.size() < old_.size() || now.size() > old_.size() + 1 ||
            !std::equal(old_.begin(), old_.end(), now.begin()) ||
            std::ranges::any_of(now,
                                [this](const std::string& line) { return wordsOf(line) != entryWords_; }))
            return "the file is neither the old nor the new one: " + text;
        runToEnd(words_, root_.environment(), patience); // refused for a token that is there
        if (entriesOf(file_).size() != old_.size() + 1)
            return "the same command again does not write it: " + readFile(file_);
        return unfinished();
    }

private:
    // What a writer left before it was killed has secrets; the next one removes it, when it is a minute old.
    std::string unfinished() {
        for (const auto& entry : fs::directory_iterator(fs::path(file_).parent_path()))
            fs::last_write_time(entry, fs::file_time_type::clock::now() - std::chrono::minutes(2));
        if (const std::string failure = ended(another_, root_); !failure.empty())
            return failure;
        const std::string base = fs::path(file_).filename().string() + '.';
        for (const auto& entry : fs::directory_iterator(fs::path(file_).parent_path()))
            if (const std::string name = entry.path().filename();
                name.starts_with(base) && name != base + "lock")
                return name + " stays behind";
        return "";
    }

    std::string file_;
    std::size_t entryWords_;
    std::vector<std::string> another_;
    std::vector<std::string> old_;
};

// A program whose input is one line.
std::vector<std::string> withInput(const std::string& line, const std::vector<std::string>& command) {
    std::vector<std::string> all{"/bin/sh", "-c", "exec \"$@\" <<E\n" + line + "\nE\n", "sh"};
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

// ---- A service: it prints that it listens, and then it ends when asked to.
class ServiceWriter : public Command {
public:
    explicit ServiceWriter(const std::vector<std::string>& words) : Command(words) {}

    void use(Traced& program) override {
        eventually([&] { return listens(output()) || program.waitForEnd(0).has_value(); }, patience);
        if (!program.waitForEnd(0)) {
            kill(program.pid(), SIGTERM);
            program.waitForEnd(patience.count());
        }
    }

    std::string nextFails() override {
        const std::string output = root_.file("/var/log/next");
        writeFile(output, "");
        appliance::Process next(words_, root_.environment(), output);
        if (!eventually([&] { return listens(output) || !next.running(); }, patience) || !next.running())
            return "the next start does not listen: " + readFile(output);
        next.signal(SIGTERM);
        const std::optional<int> status = next.waitForEnd(patience);
        if (!status || *status != 0)
            return "the next start does not end";
        const std::string now = root_.parameters();
        return withoutNumbers(now) == withoutNumbers(written()) ? "" : "the parameter file is wrong: " + now;
    }

private:
    static bool listens(const std::string& output) {
        return readFile(output).find("port=") != std::string::npos;
    }

    // A number that the gateway had taken for a source, and not written there yet, is never given to another one.
    static std::string withoutNumbers(const std::string& text) {
        return std::regex_replace(text, std::regex("(VideoSourceNumber|HighestNumber) = [0-9]+"), "$1");
    }

    // What an undisturbed start makes of the parameter file.
    std::string written() const {
        const Root other;
        const std::string output = other.file("/var/log/output");
        appliance::Process undisturbed(words_, other.environment(), output);
        eventually([&] { return listens(output); }, patience);
        undisturbed.signal(SIGTERM);
        undisturbed.waitForEnd(patience);
        return other.parameters();
    }
};

template<class Made, class... Arguments>
std::function<std::unique_ptr<Writer>()> maker(Arguments... arguments) {
    return [=] { return std::make_unique<Made>(arguments...); };
}

std::vector<std::string> ctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program("decoderctl"));
    return arguments;
}

using Makers = std::vector<std::pair<std::string, std::function<std::unique_ptr<Writer>()>>>;

const Makers& makers() {
    using Words = std::vector<std::string>;
    static const Makers all{
        {"set", maker<ParameterCommand>(ctl({"set", "Decoder.VideoMode", "ntsc"}))},
        {"add", maker<ParameterCommand>(ctl({"add", "Yard", "rtsp://127.0.0.1:9/y", "--unchecked"}))},
        {"rename", maker<ParameterCommand>(ctl({"rename", "Beta", "Roof"}))},
        {"order", maker<ParameterCommand>(ctl({"order", "Beta"}))},
        {"remove", maker<ParameterCommand>(ctl({"remove", "Alpha"}))},
        {"panel-token", maker<SecretCommand>("/etc/decoder/panel.tokens", std::size_t{4},
                                             ctl({"panel-token", "robot", "--role", "alarm"}),
                                             ctl({"panel-token", "fresh", "--role", "viewer"}),
                                             ctl({"panel-token", "last", "--role", "viewer"}))},
        {"panel-password",
         maker<SecretCommand>(
             "/etc/decoder/panel.accounts", std::size_t{3},
             withInput("correct horse", ctl({"panel-password", "guard", "--role", "viewer"})),
             withInput("battery staple", ctl({"panel-password", "visitor"})),
             withInput("battery staple", ctl({"panel-password", "last"})))},
        {"camera-gateway", maker<ServiceWriter>(Words{program("camera-gateway"), "--port", "18100"})},
        {"decoder-panel", maker<ServiceWriter>(Words{program("decoder-panel"), "--port", "18188"})},
        {"supervisor", makeSupervisorWriter},
    };
    return all;
}

} // namespace

std::vector<std::string> writerNames() {
    std::vector<std::string> names;
    for (const auto& [name, make] : makers())
        names.push_back(name);
    return names;
}

std::unique_ptr<Writer> makeWriter(const std::string& name) {
    const auto found = std::ranges::find(makers(), name, &Makers::value_type::first);
    return found == makers().end() ? nullptr : found->second();
}

} // namespace faults
