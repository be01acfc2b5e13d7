#include "libcommon/src/resolver.h"

#include "libcommon/src/network_fixture.h"

#include <libcommon/clock.h>
#include <libcommon/interrupt.h>
#include <libcommon/network.h>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <dlfcn.h>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>
#include <vector>

using network::NetworkOperation;
using network::resolve;

namespace {

// ---- Process-wide state ----
// State of the name server of these tests; see getaddrinfo below.
std::atomic<int> lookups = 0; // of names; addresses don't count
std::atomic<bool> lookupSawSignals = false;

// Look-ups of "slow.test": they hang until the test that made them ends.
class SlowLookups {
public:
    void hang() {
        std::unique_lock guard(lock_);
        ++started_;
        ++hanging_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return released_; });
        --hanging_;
        changed_.notify_all();
    }
    void waitForStarted(int count) {
        std::unique_lock guard(lock_);
        EXPECT_TRUE(changed_.wait_for(guard, std::chrono::seconds(10), [&] { return started_ >= count; }));
    }
    void release() {
        std::unique_lock guard(lock_);
        released_ = true;
        changed_.notify_all();
        changed_.wait(guard, [this] { return hanging_ == 0; });
        released_ = false;
        started_ = 0;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int started_ = 0;
    int hanging_ = 0;
    bool released_ = false;
};
SlowLookups& slowLookups = *new SlowLookups; // never destroyed: its threads are detached

constexpr std::int64_t second = 1'000'000;

using GetAddrInfo = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

addrinfo* chained(addrinfo* first, addrinfo* other) {
    addrinfo* last = first;
    while (last->ai_next != nullptr)
        last = last->ai_next;
    last->ai_next = other;
    return first;
}

} // namespace

// The name server of these tests, in the place of the C library's: "slow.test" answers when it is released,
// "two.test" has an address without a listener and one more, "none.test" does not exist.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
    static const auto original = reinterpret_cast<GetAddrInfo>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if ((hints->ai_flags & AI_NUMERICHOST) != 0)
        return original(host, service, hints, result);
    ++lookups;
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    if (sigismember(&mask, SIGUSR1) != 1 || sigismember(&mask, SIGINT) != 1 ||
        sigismember(&mask, SIGTERM) != 1)
        lookupSawSignals = true;
    const std::string name = host;
    if (name == "slow.test") {
        slowLookups.hang();
        return original("127.0.0.1", service, hints, result);
    }
    if (name == "two.test") {
        addrinfo* first = nullptr;
        addrinfo* other = nullptr;
        original("127.0.0.7", service, hints, &first);
        original("127.0.0.1", service, hints, &other);
        *result = chained(first, other);
        return 0;
    }
    if (name == "none.test")
        return EAI_NONAME;
    return original(host, service, hints, result);
}

namespace {

class Resolver : public NetworkTest {
protected:
    Resolver() {
        lookups = 0;
        lookupSawSignals = false;
    }
    ~Resolver() override { slowLookups.release(); }
};

std::vector<std::string> texts(const network::Resolution& resolution) {
    std::vector<std::string> result;
    for (const network::Endpoint& endpoint : resolution.endpoints)
        result.push_back(network::addressText(endpoint));
    return result;
}

TEST_F(Resolver, ANumericAddressNeedsNoLookup) {
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_EQ(texts(resolve("127.0.0.2", 80, operation)), std::vector<std::string>{"127.0.0.2"});
    const auto ipv6 = resolve("::1", 8080, operation);
    EXPECT_EQ(texts(ipv6), std::vector<std::string>{"::1"});
    EXPECT_TRUE(ipv6.numeric);
    EXPECT_EQ(ntohs(reinterpret_cast<const sockaddr_in6&>(ipv6.endpoints[0].address).sin6_port), 8080);
    EXPECT_EQ(lookups, 0);
}

TEST_F(Resolver, ANameGivesAllItsAddressesWithThePort) {
    NetworkOperation operation(gettimeusec() + 10 * second);
    const auto found = resolve("two.test", 554, operation);
    EXPECT_EQ(texts(found), (std::vector<std::string>{"127.0.0.7", "127.0.0.1"}));
    EXPECT_FALSE(found.numeric);
    for (const auto& endpoint : found.endpoints)
        EXPECT_EQ(ntohs(reinterpret_cast<const sockaddr_in&>(endpoint.address).sin_port), 554);
    EXPECT_EQ(lookups, 1);
}

TEST_F(Resolver, AnUnknownNameIsAnError) {
    NetworkOperation operation(gettimeusec() + 10 * second);
    const auto found = resolve("none.test", 80, operation);
    EXPECT_TRUE(found.endpoints.empty());
    EXPECT_EQ(found.error, EHOSTUNREACH);
    EXPECT_EQ(found.reason, gai_strerror(EAI_NONAME));
}

TEST_F(Resolver, ASlowNameServerCostsTheTimeout) {
    const Stopwatch time;
    NetworkOperation operation(gettimeusec() + 50'000);
    const auto found = resolve("slow.test", 80, operation);
    EXPECT_TRUE(found.endpoints.empty());
    EXPECT_EQ(found.error, ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 49);
    slowLookups.waitForStarted(1);
}

TEST_F(Resolver, AnInterruptionEndsALookupAtOnce) {
    const HandlerCount interruptions(SIGUSR1);
    const double time = medianInterruption([](int round) { slowLookups.waitForStarted(round + 1); },
                                           [](int) {
                                               NetworkOperation operation(gettimeusec() + 10 * second);
                                               EXPECT_EQ(resolve("slow.test", 80, operation).error, EINTR);
                                           });
    EXPECT_LT(time, 100);
    EXPECT_EQ(interruptions.value(), 5);
}

TEST_F(Resolver, AnInterruptionBeforeTheLookupStartsNone) {
    setInterrupted();
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_EQ(resolve("two.test", 80, operation).error, EINTR);
    EXPECT_EQ(lookups, 0);
}

TEST_F(Resolver, ALookupRunsWithEverySignalBlocked) {
    NetworkOperation operation(gettimeusec() + 10 * second);
    resolve("two.test", 80, operation);
    EXPECT_FALSE(lookupSawSignals);
    EXPECT_FALSE(isBlocked(SIGTERM));
}

TEST_F(Resolver, ADeadNameServerDoesNotPileUpThreads) {
    constexpr int limit = 16;
    for (int i = 0; i < limit; ++i) {
        NetworkOperation operation(gettimeusec() + 1000);
        EXPECT_EQ(resolve("slow.test", 80, operation).error, ETIMEDOUT);
    }
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_EQ(resolve("slow.test", 80, operation).error, EAGAIN);
    slowLookups.waitForStarted(limit);
}

TEST_F(Resolver, TextThatIsNoHostNeverReachesTheNameServer) {
    NetworkOperation operation(gettimeusec() + second);
    for (const char* host : {"", " ", "a b", "a/b", "a@b", "-a", "1:2:3", "[::1]", "a\r\nb", "\xff"})
        EXPECT_EQ(resolve(host, 80, operation).error, EHOSTUNREACH) << host;
    EXPECT_EQ(lookups, 0);
}

TEST_F(Resolver, AnUnknownIPv6ZoneIsNoNameToLookUp) {
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_EQ(resolve("fe80::1%nosuchif0", 80, operation).error, EHOSTUNREACH);
    EXPECT_EQ(lookups, 0);
}

TEST_F(Resolver, ConnectTriesEveryAddressOfAName) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK); // the second address of two.test only
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const int fd = connectTCP("two.test", ntohs(address.sin_port), true, 5);
    EXPECT_GE(fd, 0);
    close(fd);
    close(listener);
}

} // namespace
