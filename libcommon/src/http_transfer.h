// One HTTP transfer: libcurl's options for it, its callbacks, and its result so far.
#pragma once

#include "libcommon/src/http_client.h"
#include "libcommon/src/kept_connections.h"

#include <array>
#include <curl/curl.h>
#include <memory>

namespace network {

// Why we ended a transfer ourselves; libcurl's error is then only a consequence.
enum class EarlyEnd { None, BufferFull, RefusalKnown, HeaderTooLong };

class Transfer {
public:
    explicit Transfer(const HttpRequest& request) : request_(request) {}
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Sets everything on `easy`, which was reset before. `resolved`: an entry for CURLOPT_RESOLVE, or "" for
    // a numeric host. `authentication`: CURLAUTH_ bits, 0 for none. `connectTime` in milliseconds. The object
    // has to outlive the transfer.
    CURLcode configure(CURL* easy, const std::string& resolved, unsigned long authentication,
                       long connectTime, KeptConnections& sockets);

    // Starts again with another kind of authentication and forgets the earlier answer.
    void restart(CURL* easy, unsigned long authentication);

    bool isConnected() const { return connected_; }

    // When to stop waiting for the rest of a refusal's body: the verdict is known. INT64_MAX: never.
    std::int64_t refusalLimit() const;
    void endRefusal() { earlyEnd_ = EarlyEnd::RefusalKnown; }

    // libcurl did not answer the 401: its challenge could not be read, or its body never ended.
    bool hasUnansweredChallenge() const { return headerComplete_ && status_ == 401 && !answeredChallenge_; }

    // The result of the transfer; `code` comes from libcurl or from the waiting loop.
    HttpOutcome outcome(CURL* easy, CURLcode code) const;

private:
    template<class Value>
    void set(CURL* easy, CURLoption option, Value value) {
        if (setupError_ == CURLE_OK)
            setupError_ = curl_easy_setopt(easy, option, value);
    }
    void setUrl(CURL* easy);
    void setTls(CURL* easy);
    void setCallbacks(CURL* easy);

    static std::size_t onHeader(char* line, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* self);
    static int onProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t);
    static int onRequest(void* self, char*, char*, int, int);
    bool takeHeaderLine(std::string_view line);
    bool takeBody(const char* data, std::size_t length);
    bool isRefusal() const { return status_ >= 300; }

    const HttpRequest& request_;
    CURL* easy_ = nullptr;
    CURLcode setupError_ = CURLE_OK;
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url_{nullptr, &curl_url_cleanup};
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> resolved_{nullptr, &curl_slist_free_all};
    std::array<char, CURL_ERROR_SIZE> error_ = {};

    bool connected_ = false;
    bool awaitsStatusLine_ = false; // the next header line begins a response; else it may be a body's trailer
    bool headerComplete_ = false;   // of the response to the latest request
    bool answeredChallenge_ = false;
    int status_ = 0;
    std::size_t headerBytes_ = 0;
    std::int64_t refusedAt_ = 0; // when a refusal's header was complete; 0: no refusal
    int bytes_ = 0;
    std::size_t dropped_ = 0;
    EarlyEnd earlyEnd_ = EarlyEnd::None;
};

} // namespace network
