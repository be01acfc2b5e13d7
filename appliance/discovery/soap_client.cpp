#include "appliance/discovery/soap_client.h"

#include "appliance/discovery/messages/security.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <curl/curl.h>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::chrono::milliseconds connectTime(2500);
constexpr std::chrono::milliseconds requestTime(5000);
constexpr std::size_t maxBodyBytes = maxXmlBytes;
constexpr std::size_t maxHeaderBytes = 64UL * 1024;

// What arrives while a request runs.
struct Received {
    std::string body;
    std::size_t headerBytes = 0;
    bool offersDigest = false;
    bool tooLong = false;
};

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower;
}

// Any other result than the number of bytes ends the transfer.
std::size_t takeBody(char* bytes, std::size_t one, std::size_t count, void* to) {
    auto& received = *static_cast<Received*>(to);
    const std::size_t size = one * count;
    if (received.body.size() + size > maxBodyBytes) {
        received.tooLong = true;
        return size + 1;
    }
    received.body.append(bytes, size);
    return size;
}

std::size_t takeHeader(char* bytes, std::size_t one, std::size_t count, void* to) {
    auto& received = *static_cast<Received*>(to);
    const std::size_t size = one * count;
    received.headerBytes += size;
    if (received.headerBytes > maxHeaderBytes) {
        received.tooLong = true;
        return size + 1;
    }
    const std::string line = lowerCase({bytes, size});
    if (line.starts_with("www-authenticate:") && line.find("digest") != std::string::npos) {
        received.offersDigest = true;
    }
    return size;
}

// The time that a request may take; zero or less: none is left.
std::chrono::milliseconds timeFor(Moment end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return std::min(left, requestTime);
}

void setFixedOptions(CURL* curl) {
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    // Cameras sign their certificates themselves. What is sent under TLS is what would be sent without it: digests.
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, takeHeader);
}

} // namespace

struct SoapClient::HttpAnswer {
    long status = 0; // 0: no answer
    Received received;
    std::string mistake;
    bool notHttp = false;
};

void SoapClient::prepareProcess() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)readXml("<a/>");
}

SoapClient::SoapClient(Credentials credentials, Moment end)
    : credentials_(std::move(credentials)), end_(end), curl_(curl_easy_init()) {
    if (curl_ == nullptr) {
        throw std::runtime_error("there is no memory for a request");
    }
    setFixedOptions(curl_);
}

SoapClient::~SoapClient() {
    curl_easy_cleanup(curl_);
}

std::string SoapClient::message(const std::string& body, bool anonymous) const {
    if (anonymous || credentials_.user.empty() || httpDigest_) {
        return soapEnvelope("", body);
    }
    const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr)) + clockDifference_;
    return soapEnvelope(securityHeader(makeToken(credentials_.user, credentials_.password, now)), body);
}

SoapClient::HttpAnswer SoapClient::post(const WebAddress& service, const std::string& message,
                                        bool withDigest) {
    HttpAnswer answer;
    const std::chrono::milliseconds time = timeFor(end_);
    if (time.count() <= 0) {
        answer.mistake = "the time is over";
        return answer;
    }
    const std::string url = service.url();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/soap+xml; charset=utf-8");
    headers = curl_slist_append(headers, "Expect:"); // many devices do not know it
    curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(message.size()));
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, message.c_str());
    curl_easy_setopt(curl_, CURLOPT_TIMEOUT_MS, static_cast<long>(time.count()));
    curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(std::min(time, connectTime).count()));
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &answer.received);
    curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &answer.received);
    // Never Basic: it would send the password itself.
    curl_easy_setopt(curl_, CURLOPT_HTTPAUTH,
                     static_cast<long>(withDigest ? CURLAUTH_DIGEST : CURLAUTH_NONE));
    curl_easy_setopt(curl_, CURLOPT_USERNAME, withDigest ? credentials_.user.c_str() : nullptr);
    curl_easy_setopt(curl_, CURLOPT_PASSWORD, withDigest ? credentials_.password.c_str() : nullptr);
    const CURLcode code = curl_easy_perform(curl_);
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &answer.status);
    curl_slist_free_all(headers);
    if (code != CURLE_OK) {
        answer.mistake = curl_easy_strerror(code);
        answer.notHttp = code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_WEIRD_SERVER_REPLY;
        answer.status = answer.received.tooLong ? answer.status : 0;
    }
    return answer;
}

SoapReply SoapClient::ask(const WebAddress& service, const std::string& body, bool anonymous) {
    const bool mayIdentify = !anonymous && !credentials_.user.empty();
    HttpAnswer answer = post(service, message(body, anonymous), mayIdentify && httpDigest_);
    if (answer.status == 401 && mayIdentify && !httpDigest_ && answer.received.offersDigest) {
        httpDigest_ = true;
        answer = post(service, message(body, anonymous), true);
    }
    if (answer.received.tooLong) {
        return {SoapOutcome::NotUnderstood, {}, "its answer is too long"};
    }
    if (answer.notHttp) {
        return {SoapOutcome::NotUnderstood, {}, "its answer is not HTTP"};
    }
    if (answer.status == 0) {
        return {SoapOutcome::NoConnection, {}, answer.mistake};
    }
    if (answer.status == 401 || answer.status == 403) {
        return {SoapOutcome::NotAuthorized, {}, "HTTP status " + std::to_string(answer.status)};
    }
    SoapAnswer soap = readSoapAnswer(answer.received.body);
    if (!soap.mistake.empty()) {
        const std::string status =
            answer.status == 200 ? "" : " (HTTP status " + std::to_string(answer.status) + ")";
        return {SoapOutcome::NotUnderstood, {}, "its answer is not understood: " + soap.mistake + status};
    }
    if (soap.isFault) {
        return {soap.notAuthorized ? SoapOutcome::NotAuthorized : SoapOutcome::Fault, {}, soap.reason};
    }
    return {SoapOutcome::Answered, std::move(soap.content), {}};
}
