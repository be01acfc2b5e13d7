#include "appliance/streams/rtsp_credentials.h"

#include <libcommon/network.h>

#include <cstdio>
#include <glib.h>
#include <string_view>
#include <strings.h>
#include <utility>

namespace streams {
namespace {

bool isScheme(const std::string& challenge, std::string_view scheme) {
    return challenge.size() >= scheme.size() &&
           strncasecmp(challenge.data(), scheme.data(), scheme.size()) == 0 &&
           (challenge.size() == scheme.size() || challenge[scheme.size()] == ' ');
}

// The value of a challenge's parameter, without its quotes.
std::string valueIn(const std::string& challenge, std::string_view name) {
    for (std::size_t at = challenge.find(name); at != std::string::npos; at = challenge.find(name, at + 1)) {
        const bool begins = at == 0 || challenge[at - 1] == ' ' || challenge[at - 1] == ',';
        std::size_t value = at + name.size();
        if (!begins || value >= challenge.size() || challenge[value] != '=')
            continue;
        ++value;
        if (value < challenge.size() && challenge[value] == '"')
            return challenge.substr(value + 1, challenge.find('"', value + 1) - value - 1);
        return challenge.substr(value, challenge.find_first_of(", ", value) - value);
    }
    return "";
}

std::string hashed(const std::string& algorithm, const std::string& text) {
    const GChecksumType type =
        strcasecmp(algorithm.c_str(), "SHA-256") == 0 ? G_CHECKSUM_SHA256 : G_CHECKSUM_MD5;
    char* hex = g_compute_checksum_for_string(type, text.data(), static_cast<gssize>(text.size()));
    std::string result = hex;
    g_free(hex);
    return result;
}

bool isKnownAlgorithm(const std::string& name) {
    return name.empty() || strcasecmp(name.c_str(), "MD5") == 0 || strcasecmp(name.c_str(), "SHA-256") == 0;
}

} // namespace

RtspCredentials::RtspCredentials(std::string user, std::string password)
    : user_(std::move(user)), password_(std::move(password)) {}

bool RtspCredentials::challenge(const std::vector<std::string>& challenges) {
    if (user_.empty())
        return false;
    for (const std::string& one : challenges) {
        if (!isScheme(one, "Digest") || !isKnownAlgorithm(valueIn(one, "algorithm")))
            continue;
        const std::string nonce = valueIn(one, "nonce");
        const bool again = scheme_ == Scheme::digest && nonce == nonce_;
        scheme_ = Scheme::digest;
        realm_ = valueIn(one, "realm");
        nonce_ = nonce;
        opaque_ = valueIn(one, "opaque");
        algorithm_ = valueIn(one, "algorithm");
        withQuality_ = valueIn(one, "qop").find("auth") != std::string::npos;
        count_ = 0;
        return !again;
    }
    for (const std::string& one : challenges)
        if (isScheme(one, "Basic"))
            return std::exchange(scheme_, Scheme::basic) != Scheme::basic;
    return false;
}

std::string RtspCredentials::answer(const std::string& method, const std::string& url) {
    switch (scheme_) {
    case Scheme::none:
        return "";
    case Scheme::basic: {
        const std::string both = user_ + ":" + password_;
        return "Basic " + base64encode(both.data(), both.size());
    }
    case Scheme::digest:
        return digest(method, url);
    }
    return "";
}

std::string RtspCredentials::digest(const std::string& method, const std::string& url) {
    const std::string who = hashed(algorithm_, user_ + ":" + realm_ + ":" + password_);
    const std::string what = hashed(algorithm_, method + ":" + url);
    char count[16];
    std::snprintf(count, sizeof count, "%08x", ++count_);
    char own[16];
    std::snprintf(own, sizeof own, "%08x", g_random_int());
    const std::string between =
        withQuality_ ? ":" + nonce_ + ":" + count + ":" + own + ":auth:" : ":" + nonce_ + ":";
    std::string value = "Digest username=\"" + user_ + "\", realm=\"" + realm_ + "\", nonce=\"" + nonce_ +
                        "\", uri=\"" + url + "\", response=\"" + hashed(algorithm_, who + between + what) +
                        "\"";
    if (!algorithm_.empty())
        value += ", algorithm=" + algorithm_;
    if (!opaque_.empty())
        value += ", opaque=\"" + opaque_ + "\"";
    if (withQuality_)
        value += std::string(", qop=auth, nc=") + count + ", cnonce=\"" + own + "\"";
    return value;
}

} // namespace streams
