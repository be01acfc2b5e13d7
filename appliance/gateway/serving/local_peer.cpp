#include "appliance/gateway/serving/local_peer.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace gateway {
namespace {

constexpr std::int64_t logPauseUs = 60'000'000;

// When a refused user was logged last, on gettimeusec()'s clock; 0: never. For the loop's thread.
std::int64_t lastLogged = 0;

struct Question {
    nlmsghdr header;
    inet_diag_req_v2 socket;
};

// The socket whose own end is our other end.
bool describeOtherEnd(int fd, inet_diag_sockid& socket) {
    sockaddr_in here{};
    sockaddr_in there{};
    socklen_t size = sizeof here;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&here), &size) != 0 || here.sin_family != AF_INET)
        return false;
    size = sizeof there;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&there), &size) != 0)
        return false;
    socket.idiag_sport = there.sin_port;
    socket.idiag_dport = here.sin_port;
    socket.idiag_src[0] = there.sin_addr.s_addr;
    socket.idiag_dst[0] = here.sin_addr.s_addr;
    // Otherwise a socket that is bound to this interface is not found.
    socket.idiag_if = if_nametoindex("lo");
    socket.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    socket.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return true;
}

// The kernel answers before send() returns.
std::optional<uid_t> ask(const Question& question) {
    const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (kernel < 0)
        return std::nullopt;
    alignas(nlmsghdr) std::array<char, 4096> answer{};
    ssize_t length = -1;
    if (send(kernel, &question, sizeof question, 0) == sizeof question)
        length = recv(kernel, answer.data(), answer.size(), MSG_DONTWAIT);
    close(kernel);
    nlmsghdr header{};
    inet_diag_msg found{};
    if (length < static_cast<ssize_t>(NLMSG_HDRLEN + sizeof found))
        return std::nullopt;
    std::memcpy(&header, answer.data(), sizeof header);
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY)
        return std::nullopt;
    std::memcpy(&found, answer.data() + NLMSG_HDRLEN, sizeof found);
    return found.idiag_uid;
}

} // namespace

std::optional<uid_t> userAtOtherEnd(int fd) {
    Question question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.socket.sdiag_family = AF_INET;
    question.socket.sdiag_protocol = IPPROTO_TCP;
    question.socket.idiag_states = ~0U;
    if (!describeOtherEnd(fd, question.socket.id))
        return std::nullopt;
    return ask(question);
}

bool mayUse(int fd) {
    const std::optional<uid_t> user = userAtOtherEnd(fd);
    if (!user || *user == geteuid() || *user == 0)
        return true;
    const std::int64_t now = gettimeusec();
    if (lastLogged == 0 || now - lastLogged > logPauseUs) {
        lastLogged = now;
        logmsg(4, "A connection of user %u is turned away: the cameras are for the decoder's own user",
               *user);
    }
    return false;
}

} // namespace gateway
