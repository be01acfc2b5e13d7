#include "libcommon/src/resolver.h"

#include "libcommon/src/address_text.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace network {

namespace {

// ---- Process-wide state ----
// Look-ups whose thread still runs, abandoned ones included. Written by resolve() and by each look-up's
// thread. The limit keeps a dead name server from piling up threads.
std::atomic<int> lookupsRunning = 0;
constexpr int maximumLookups = 16;

constexpr std::size_t maximumEndpoints = 64; // a name server's answer may hold hundreds

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// One look-up, owned by the waiting caller and by its thread together; the last of the two deletes it.
struct Lookup {
    explicit Lookup(std::string name) : host(std::move(name)), finished(eventfd(0, EFD_CLOEXEC)) {}
    ~Lookup() {
        if (finished >= 0)
            close(finished);
    }
    Lookup(const Lookup&) = delete;
    Lookup& operator=(const Lookup&) = delete;

    const std::string host;
    const int finished; // readable when the answer is there
    std::atomic<bool> answered = false;
    int error = 0; // a getaddrinfo code
    AddressList list{nullptr, &freeaddrinfo};
};

int addressesOf(const std::string& host, int flags, AddressList& list) {
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM; // one entry per address
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (error == 0)
        list.reset(found);
    return error;
}

void lookUp(const std::shared_ptr<Lookup>& lookup) {
    lookup->error = addressesOf(lookup->host, 0, lookup->list);
    lookup->answered = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(lookup->finished, &one, sizeof one);
    --lookupsRunning;
}

// Starts the thread with every signal blocked, so that no handler ever runs on it. False with errno.
bool start(const std::shared_ptr<Lookup>& lookup) {
    if (lookup->finished < 0)
        return false;
    if (++lookupsRunning > maximumLookups) {
        --lookupsRunning;
        errno = EAGAIN;
        return false;
    }
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved);
    bool started = true;
    try {
        std::thread(lookUp, lookup).detach();
    } catch (const std::system_error& failure) {
        --lookupsRunning;
        errno = failure.code().value();
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    return started;
}

std::vector<Endpoint> endpointsOf(const addrinfo* list, unsigned short port) {
    std::vector<Endpoint> endpoints;
    for (const addrinfo* entry = list; entry != nullptr && endpoints.size() < maximumEndpoints;
         entry = entry->ai_next) {
        if (entry->ai_family != AF_INET && entry->ai_family != AF_INET6)
            continue;
        Endpoint endpoint = {};
        endpoint.length = entry->ai_addrlen;
        std::memcpy(&endpoint.address, entry->ai_addr, entry->ai_addrlen);
        if (entry->ai_family == AF_INET)
            reinterpret_cast<sockaddr_in&>(endpoint.address).sin_port = htons(port);
        else
            reinterpret_cast<sockaddr_in6&>(endpoint.address).sin6_port = htons(port);
        endpoints.push_back(endpoint);
    }
    return endpoints;
}

Resolution failure(int error, const char* reason) {
    Resolution result;
    result.error = error;
    result.reason = reason;
    return result;
}

Resolution success(const addrinfo* list, unsigned short port, bool numeric) {
    Resolution result;
    result.endpoints = endpointsOf(list, port);
    result.numeric = numeric;
    return result.endpoints.empty() ? failure(EHOSTUNREACH, "the name has no usable address") : result;
}

Resolution resolveName(const std::string& host, unsigned short port, NetworkOperation& operation) {
    const auto lookup = std::make_shared<Lookup>(host);
    if (!start(lookup))
        return failure(errno, std::strerror(errno));
    if (!operation.waitFor(lookup->finished, POLLIN))
        return failure(errno, errno == ETIMEDOUT ? "the name look-up took too long" : std::strerror(errno));
    if (!lookup->answered || lookup->error != 0)
        return failure(EHOSTUNREACH, gai_strerror(lookup->error));
    return success(lookup->list.get(), port, false);
}

} // namespace

Resolution resolve(const std::string& host, unsigned short port, NetworkOperation& operation) {
    if (operation.interrupted())
        return failure(EINTR, "interrupted");
    if (!isHostText(host))
        return failure(EHOSTUNREACH, "not a host name or address");
    AddressList list{nullptr, &freeaddrinfo};
    if (addressesOf(host, AI_NUMERICHOST, list) == 0)
        return success(list.get(), port, true);
    if (host.find(':') != std::string::npos) // of an interface that this machine does not have
        return failure(EHOSTUNREACH, "no such IPv6 zone");
    return resolveName(host, port, operation);
}

std::string addressText(const Endpoint& endpoint) {
    char text[NI_MAXHOST] = "";
    getnameinfo(reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.length, text, sizeof text,
                nullptr, 0, NI_NUMERICHOST);
    return text;
}

} // namespace network
