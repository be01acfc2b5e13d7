// The program as a shell sees it: output and exit status.
#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"

#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

// A run of the program. The destructor kills it if it still runs.
class Program {
public:
    explicit Program(const std::vector<std::string>& words) {
        std::array<int, 2> out{};
        std::array<int, 2> err{};
        if (pipe(out.data()) != 0 || pipe(err.data()) != 0)
            return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            for (const int fd : {out[0], out[1], err[0], err[1]})
                close(fd);
            std::vector<std::string> all{VIDEO_ENCODER};
            all.insert(all.end(), words.begin(), words.end());
            std::vector<char*> pointers;
            pointers.reserve(all.size() + 1);
            for (std::string& word : all)
                pointers.push_back(word.data());
            pointers.push_back(nullptr);
            execv(VIDEO_ENCODER, pointers.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        out_ = out[0];
        err_ = err[0];
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(out_);
        close(err_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string line() { return readFrom(out_, '\n'); }
    std::string errors() { return readFrom(err_, '\0'); }
    std::string output() { return readFrom(out_, '\0'); }
    void signal(int number) const { kill(pid_, number); }
    // The exit status, or minus the signal that ended it.
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    static std::string readFrom(int fd, char end) {
        std::string text;
        char byte = 0;
        pollfd poller{fd, POLLIN, 0};
        while (poll(&poller, 1, 20000) > 0 && read(fd, &byte, 1) == 1 && byte != end)
            text += byte;
        return text;
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
};

std::uint16_t portIn(const std::string& line, const std::string& name) {
    const std::size_t at = line.find(name + "=");
    return at == std::string::npos ? 0
                                   : static_cast<std::uint16_t>(std::stoi(line.substr(at + name.size() + 1)));
}

} // namespace

TEST(Program, PrintsItsPortsAndEndsAtBothSignals) {
    for (const int number : {SIGINT, SIGTERM}) {
        Program program({"--https", "--control", "0"});
        const std::string line = program.line();
        EXPECT_THAT(line, testing::MatchesRegex("http=[0-9]+ rtsp=0 https=[0-9]+ control=[0-9]+"));
        Client streaming(portIn(line, "http"));
        streaming.send("GET /vexo-cgi/mjpg/video.cgi HTTP/1.1\r\n\r\n");
        EXPECT_EQ(streaming.readHead().status, 200);
        EXPECT_TRUE(nextPart(streaming).has_value());
        program.signal(number);
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(program.errors(), "");
    }
}

TEST(Program, EndsWhileAClientPlaysRtsp) {
    Program program({"--kinds", "rtsp-unicast,rtsp-tcp,rtsp-http", "--width", "160", "--height", "120"});
    RtspClient playing(portIn(program.line(), "rtsp"));
    EXPECT_EQ(playing.setUp("RTP/AVP/TCP;unicast;interleaved=0-1").status, 200);
    EXPECT_EQ(playing.ask("PLAY", rtspTestPath, playing.session).status, 200);
    EXPECT_TRUE(playing.packet().has_value());
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.errors(), "");
}

TEST(Program, APortInUseExitsOne) {
    Program first({});
    const std::uint16_t port = portIn(first.line(), "http");
    Program second({"--http", std::to_string(port)});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.errors(), HasSubstr("Address already in use"));
}

TEST(Program, MistakesExitTwoWithAReason) {
    Program unknown({"--nonsense"});
    EXPECT_EQ(unknown.wait(), 2);
    EXPECT_THAT(unknown.errors(), HasSubstr("--nonsense"));
    Program missing({"--input", "/no/such/file"});
    EXPECT_EQ(missing.wait(), 2);
    EXPECT_THAT(missing.errors(), HasSubstr("there is no file '/no/such/file'"));
}

TEST(Program, HelpExitsZero) {
    Program program({"--help"});
    EXPECT_THAT(program.output(), HasSubstr("--fault"));
    EXPECT_EQ(program.wait(), 0);
}

TEST(Program, PrintsPresets) {
    Program program({});
    const std::uint16_t port = portIn(program.line(), "http");
    Client client(port);
    client.send("GET /vexo-cgi/com/ptz.cgi?gotoserverpresetname=Main gate HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 200);
    EXPECT_EQ(program.line(), "ptz gotoserverpresetname=Main gate");
}
