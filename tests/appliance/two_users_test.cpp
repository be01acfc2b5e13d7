// A decoder that runs as its own user, and what others on the machine get: a user who has nothing to do with it, and a
// member of its group. Each object is tried by a process of that user.
#include "tests/appliance/camera_gateway.h"
#include "tests/appliance/isolation.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <sstream>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/ptrace.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace appliance {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr uid_t decoderUser = 4711;
constexpr gid_t decoderGroup = 4712;

struct User {
    uid_t user;
    gid_t group;
    std::vector<gid_t> more{};
};

const User stranger{65534, 65534};
const User member{4713, 4713, {decoderGroup}};

// What `act` writes into its stream, when it runs as that user in a process of its own.
std::string as(const User& who, const std::function<void(std::ostream&)>& act) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        std::ostringstream found;
        const bool changed = setresuid(0, 0, 0) == 0 && setgroups(who.more.size(), who.more.data()) == 0 &&
                             setresgid(who.group, who.group, who.group) == 0 &&
                             setresuid(who.user, who.user, who.user) == 0;
        if (changed)
            act(found);
        else
            found << "can't become user " << who.user;
        const std::string text = found.str();
        _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char part[4096];
    for (ssize_t length = 0; (length = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(length));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? text : text + "(died)";
}

bool opens(const std::string& path, int flags) {
    const int fd = open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}

bool connectsTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return connected;
}

// What the user may do with it: r read, w write, m make and remove files in it, c connect.
std::string rightsFor(const std::string& path, fs::file_type type) {
    std::string rights;
    if (type == fs::file_type::directory)
        return std::string(opens(path, O_RDONLY) ? "r" : "") +
               (access(path.c_str(), W_OK | X_OK) == 0 ? "m" : "");
    if (type == fs::file_type::socket)
        return connectsTo(path) ? "c" : "";
    if (type == fs::file_type::fifo) // opening one to write needs a reader
        return std::string(access(path.c_str(), R_OK) == 0 ? "r" : "") +
               (access(path.c_str(), W_OK) == 0 ? "w" : "");
    return std::string(opens(path, O_RDONLY) ? "r" : "") + (opens(path, O_WRONLY) ? "w" : "");
}

// The answer to a request, as far as it comes at once.
std::string answerOf(int port, const std::string& request) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
        pollfd ready{fd, POLLIN, 0};
        char text[4096];
        constexpr int patienceMs = 10'000;
        if (poll(&ready, 1, patienceMs) == 1)
            answer.assign(text,
                          static_cast<std::size_t>(std::max<ssize_t>(recv(fd, text, sizeof text, 0), 0)));
    }
    close(fd);
    return answer;
}

std::vector<int> identifiers(const std::string& table) {
    std::ifstream file("/proc/sysvipc/" + table);
    std::string line;
    std::getline(file, line);
    std::vector<int> all;
    while (std::getline(file, line)) {
        long key = 0;
        int id = -1;
        std::istringstream(line) >> key >> id;
        all.push_back(id);
    }
    return all;
}

class TwoUsers : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "needs root, to act as several users";
        if (!isolate())
            GTEST_SKIP() << "needs namespaces of its own, so that all queues are this decoder's";
        // Root again in the children: the saved numbers stay.
        ASSERT_EQ(setgroups(0, nullptr), 0);
        ASSERT_EQ(setresgid(decoderGroup, decoderGroup, 0), 0);
        ASSERT_EQ(setresuid(decoderUser, decoderUser, 0), 0);
        umask(0007); // as the units
        if (access(Appliance::program("skelmor").c_str(), X_OK) != 0)
            GTEST_SKIP() << "other users can't reach the programs of this build";
        decoder.emplace();
        layOut();
        decoder->setManual();
        decoder->set("Warm.Sources", "all");
        decoder->addEncoder("Gate", {}, {{"UserName", "viewer"}, {"Password", "planted-s3cret"}});
        decoder->addSource("Camera", {{"URL", "rtsp://127.0.0.1:1/live"}, {"ManualEnabled", "yes"}});
        gateway.emplace(*decoder);
        decoder->start();
        ASSERT_TRUE(decoder->showsMoving(0)) << decoder->log();
        startPanel();
    }
    void TearDown() override {
        panel.reset();
        gateway.reset();
        decoder.reset();
        EXPECT_TRUE(!isRootBehind() || (setresuid(0, 0, 0) == 0 && setresgid(0, 0, 0) == 0));
    }
    static bool isRootBehind() {
        uid_t real = 0;
        uid_t effective = 0;
        uid_t saved = 0;
        return getresuid(&real, &effective, &saved) == 0 && saved == 0;
    }

    // As systemd-tmpfiles makes the installed one; the log is the system's there.
    void layOut() {
        const fs::path root = decoder->root();
        for (const char* open : {"", "etc", "run", "var", "bin", "proc"})
            ASSERT_EQ(chmod((root / open).c_str(), 0755), 0);
        for (const char* own :
             {"etc/decoder", "run/decoder", "var/tmp", "var/log", "proc/sys", "proc/sys/dev"})
            ASSERT_EQ(chmod((root / own).c_str(), 02770), 0);
        ASSERT_EQ(chmod((root / "proc/sys/dev/button_videoselect").c_str(), 0660), 0);
    }
    void startPanel() {
        const std::string tokens = decoder->root() + "/etc/decoder/panel.tokens";
        writeFile(tokens,
                  "viewer viewer 0 d35ca5051b82ffc326a3b0b6574a9a3161dee16b9478a199ee39cd803ce5b799\n");
        ASSERT_EQ(chmod(tokens.c_str(), 0600), 0);
        const std::string output = decoder->root() + "/var/log/panel.out";
        panel.emplace(std::vector<std::string>{Appliance::program("decoder-panel"), "--port", "0"},
                      std::map<std::string, std::string>{{"APPLIANCE_ROOT", decoder->root()},
                                                         {"LIBCOMMON_LOG", decoder->logFile()}},
                      output);
        ASSERT_TRUE(eventually([&] { return readFile(output).find("port=") != std::string::npos; }));
        const std::string text = readFile(output);
        panelPort = std::atoi(text.c_str() + text.find("port=") + 5);
        EXPECT_EQ(decoder->ctl({"panel-open"}).status, 0);
    }

    std::vector<pid_t> processes() {
        return {decoder->supervisor().pid(), decoder->playerPid(), gateway->process().pid(), panel->pid()};
    }

    // Each file of the decoder, with what that user may do: "/run/decoder/info.conf rw". Files with no right are left out.
    std::vector<std::string> rightsOf(const User& who) const {
        std::vector<std::pair<std::string, fs::file_type>> all;
        for (const char* part : {"/etc", "/run", "/var", "/proc"})
            for (const auto& entry : fs::recursive_directory_iterator(decoder->root() + part))
                all.emplace_back(entry.path(), entry.symlink_status().type());
        const std::string found = as(who, [&](std::ostream& out) {
            for (const auto& [path, type] : all)
                if (const std::string rights = rightsFor(path, type); !rights.empty())
                    out << path.substr(decoder->root().size()) << ' ' << rights << '\n';
        });
        std::vector<std::string> lines;
        std::istringstream text(found);
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        std::ranges::sort(lines);
        return lines;
    }

    // Runs decoderctl as that user: its exit status.
    std::string ctlAs(const User& who, std::vector<std::string> arguments) const {
        const std::string program = Appliance::program("decoderctl");
        return as(who, [&](std::ostream& out) {
            setenv("APPLIANCE_ROOT", decoder->root().c_str(), 1);
            setenv("LIBCOMMON_LOG", "stderr", 1);
            arguments.insert(arguments.begin(), program);
            const Finished done = runToEnd(arguments, {{"APPLIANCE_ROOT", decoder->root()}});
            out << done.status;
        });
    }

    std::optional<Appliance> decoder;
    std::optional<CameraGateway> gateway;
    std::optional<Process> panel;
    int panelPort = 0;
};

TEST_F(TwoUsers, AStrangerReadsAndChangesNoFile) {
    EXPECT_THAT(rightsOf(stranger), IsEmpty());
}

TEST_F(TwoUsers, AStrangerHasNoQueueAndNoSemaphore) {
    const std::vector<int> queues = identifiers("msg");
    const std::vector<int> semaphores = identifiers("sem");
    ASSERT_FALSE(queues.empty());
    const int events = std::stoi(readFile(decoder->root() + "/run/decoder/events.id"));
    EXPECT_EQ(as(stranger,
                 [&](std::ostream& out) {
                     struct {
                         long type = 1;
                         char text[64]{};
                     } message;
                     if (msgsnd(events, &message, sizeof message.text, IPC_NOWAIT) == 0)
                         out << "sends an event\n";
                     if (msgrcv(events, &message, sizeof message.text, 0, IPC_NOWAIT | MSG_NOERROR) >= 0 ||
                         errno != EACCES)
                         out << "takes an event\n";
                     msqid_ds state{};
                     if (msgctl(events, IPC_STAT, &state) == 0)
                         out << "looks at the queue\n";
                     for (const int queue : queues)
                         if (msgctl(queue, IPC_RMID, nullptr) == 0)
                             out << "removes queue " << queue << '\n';
                     for (const int set : semaphores) {
                         sembuf take{.sem_num = 0, .sem_op = -1, .sem_flg = IPC_NOWAIT};
                         if (semctl(set, 0, GETVAL) >= 0 || errno != EACCES)
                             out << "reads semaphores " << set << '\n';
                         if (semop(set, &take, 1) == 0 || errno != EACCES)
                             out << "takes semaphore " << set << '\n';
                         if (semctl(set, 0, IPC_RMID) == 0)
                             out << "removes semaphores " << set << '\n';
                     }
                 }),
              "");
}

std::string tryProcesses(const User& who, const std::vector<pid_t>& processes) {
    return as(who, [&](std::ostream& out) {
        for (const pid_t pid : processes) {
            const std::string folder = "/proc/" + std::to_string(pid);
            if (kill(pid, SIGTERM) == 0 || errno != EPERM)
                out << "signals " << pid << '\n';
            if (ptrace(PTRACE_ATTACH, pid, nullptr, nullptr) == 0 || errno != EPERM)
                out << "traces " << pid << '\n';
            for (const char* secret : {"/environ", "/mem", "/maps", "/fd"})
                if (opens(folder + secret, O_RDONLY))
                    out << "reads " << folder << secret << '\n';
            if (readFile(folder + "/cmdline").find("planted-s3cret") != std::string::npos)
                out << "reads the password of " << pid << '\n';
        }
    });
}

TEST_F(TwoUsers, NobodyElseTouchesItsProcesses) {
    EXPECT_EQ(tryProcesses(stranger, processes()), "");
    EXPECT_EQ(tryProcesses(member, processes()), "");
}

TEST_F(TwoUsers, AStrangerGetsNothingFromThePanel) {
    const std::string host = "Host: 127.0.0.1:" + std::to_string(panelPort) + "\r\n\r\n";
    for (const char* path : {"/api/v1/status", "/api/v1/sources", "/api/v1/parameters", "/metrics"})
        EXPECT_THAT(as(stranger,
                       [&](std::ostream& out) {
                           out << answerOf(panelPort, std::string("GET ") + path + " HTTP/1.1\r\n" + host);
                       }),
                    StartsWith("HTTP/1.1 401 "))
            << path;
}

TEST_F(TwoUsers, AStrangerGetsNothingFromTheGateway) {
    const std::string request = "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    const auto ask = [&](std::ostream& out) { out << answerOf(gateway->port(), request); };
    EXPECT_EQ(as(stranger, ask), "");
    EXPECT_THAT(as({decoderUser, decoderGroup}, ask), StartsWith("RTSP/1.0 200 "));
    EXPECT_THAT(as({0, 0}, ask), StartsWith("RTSP/1.0 200 "));
}

TEST_F(TwoUsers, AStrangerHasNoCommand) {
    const std::string before = readFile(decoder->parameterFile());
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"select", "1"},
                                               {"alarm", "1"},
                                               {"lock"},
                                               {"disconnect"},
                                               {"flush"},
                                               {"mute"},
                                               {"button"},
                                               {"set", "Sound.Volume", "1"},
                                               {"get", "Encoder.Gate.Password"},
                                               {"remove", "Gate"},
                                               {"snapshot", "/dev/null"},
                                               {"panel-open"},
                                               {"panel-password", "eve"},
                                               {"sweep"},
                                               {"sources"}})
        EXPECT_THAT(ctlAs(stranger, command), Not("0")) << command.front();
    EXPECT_EQ(readFile(decoder->parameterFile()), before);
    EXPECT_TRUE(decoder->showsMoving(0)) << "all goes on";
}

TEST_F(TwoUsers, AMemberOfTheGroupControlsTheDecoderAndReadsNoKeyOfThePanel) {
    for (const std::string& line : rightsOf(member))
        EXPECT_THAT(line, Not(AnyOf(HasSubstr("/panel/"), HasSubstr("panel.tokens"),
                                    HasSubstr("panel.accounts"), HasSubstr("-key.pem"))));
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"get", "Encoder.Gate.Password"},
                                               {"set", "Sound.Volume", "33"},
                                               {"mute"},
                                               {"unmute"},
                                               {"sources"},
                                               {"select", "0"}})
        EXPECT_EQ(ctlAs(member, command), "0") << command.front();
    EXPECT_THAT(ctlAs(member, {"panel-open"}), Not("0"));
    EXPECT_TRUE(decoder->showsMoving(0));
}

} // namespace
} // namespace appliance
