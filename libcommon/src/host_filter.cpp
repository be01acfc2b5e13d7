#include "libcommon/src/host_filter.h"

#include <cstring>
#include <initializer_list>
#include <linux/filter.h>
#include <netinet/in.h>

namespace network {

namespace {

// Offsets into the IP header, which the kernel reaches below the packet's own data.
constexpr unsigned versionOffset = static_cast<unsigned>(SKF_NET_OFF);
constexpr unsigned sourceIPv4Offset = static_cast<unsigned>(SKF_NET_OFF + 12);
constexpr unsigned sourceIPv6Offset = static_cast<unsigned>(SKF_NET_OFF + 8);
constexpr unsigned versionMask = 0xf0;

constexpr unsigned short loadWord = BPF_LD | BPF_W | BPF_ABS;
constexpr unsigned short loadByte = BPF_LD | BPF_B | BPF_ABS;
constexpr unsigned short maskConstant = BPF_ALU | BPF_AND | BPF_K;
constexpr unsigned short jumpIfEqual = BPF_JMP | BPF_JEQ | BPF_K;
constexpr unsigned short returnConstant = BPF_RET | BPF_K;
constexpr unsigned wholePacket = 0xffffffff;

using Program = std::vector<sock_filter>;

void add(Program& program, unsigned short code, unsigned value) {
    program.push_back({.code = code, .jt = 0, .jf = 0, .k = value});
}

// Continues when the loaded value is `value`; else jumps over `skipped` further instructions.
void addTest(Program& program, unsigned value, unsigned char skipped) {
    program.push_back({.code = jumpIfEqual, .jt = 0, .jf = skipped, .k = value});
}

// "If this is an IP packet of that version and its source address consists of these words, take it."
void addHost(Program& program, unsigned version, unsigned sourceOffset,
             std::initializer_list<unsigned> words) {
    // Each word is a load and a test; the last instruction takes the packet.
    auto remaining = static_cast<unsigned char>(words.size() * 2 + 1);
    add(program, loadByte, versionOffset);
    add(program, maskConstant, versionMask);
    addTest(program, version << 4U, remaining);
    unsigned offset = sourceOffset;
    for (const unsigned word : words) {
        remaining = static_cast<unsigned char>(remaining - 2);
        add(program, loadWord, offset);
        addTest(program, word, remaining);
        offset += sizeof word;
    }
    add(program, returnConstant, wholePacket);
}

void addHost(Program& program, const Endpoint& host) {
    if (host.address.ss_family == AF_INET) {
        addHost(program, 4, sourceIPv4Offset,
                {ntohl(reinterpret_cast<const sockaddr_in&>(host.address).sin_addr.s_addr)});
        return;
    }
    const in6_addr& address = reinterpret_cast<const sockaddr_in6&>(host.address).sin6_addr;
    unsigned words[4];
    std::memcpy(words, &address, sizeof words);
    if (IN6_IS_ADDR_V4MAPPED(&address)) // its packets are IPv4 ones
        addHost(program, 4, sourceIPv4Offset, {ntohl(words[3])});
    else
        addHost(program, 6, sourceIPv6Offset,
                {ntohl(words[0]), ntohl(words[1]), ntohl(words[2]), ntohl(words[3])});
}

} // namespace

bool acceptOnlyFrom(int fd, const std::vector<Endpoint>& hosts) {
    Program program;
    for (const Endpoint& host : hosts)
        addHost(program, host);
    add(program, returnConstant, 0);
    const sock_fprog filter = {.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

} // namespace network
