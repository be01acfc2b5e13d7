#include "appliance/panel/web/exchange.h"

#include "appliance/panel/web/lower_case.h"
#include "appliance/panel/web/url_text.h"

#include <algorithm>
#include <array>

namespace panel {
namespace {

struct Header {
    const char* name;
    const char* value;
};

// Of every answer. A handler's own header of the same name wins.
constexpr std::array usualHeaders{
    Header{
        "Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; connect-src 'self'; "
        "manifest-src 'self'; form-action 'self'; frame-ancestors 'none'; base-uri 'none'"},
    Header{"X-Content-Type-Options", "nosniff"},
    Header{"X-Frame-Options", "DENY"},
    // With "no-referrer" browsers send forms with "Origin: null", as a page of another site may.
    Header{"Referrer-Policy", "same-origin"},
    Header{"Cross-Origin-Opener-Policy", "same-origin"},
    Header{"Cross-Origin-Resource-Policy", "same-origin"},
    Header{"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
    Header{"Cache-Control", "no-store"},
};

bool isHeaderText(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char character) { return character < ' ' || character == 0x7f; });
}

bool hasGoodHeaders(const Response& response) {
    return isHeaderText(response.type) &&
           std::all_of(response.headers.begin(), response.headers.end(), [](const auto& header) {
               return !header.first.empty() && isHeaderText(header.first) && isHeaderText(header.second);
           });
}

void destroyShared(gpointer body) {
    delete static_cast<std::shared_ptr<const std::string>*>(body);
}

// The bytes are shared with everybody else who holds the text.
GBytes* bytesOf(const Response& response) {
    const auto body = response.sharedBody != nullptr ? response.sharedBody
                                                     : std::make_shared<const std::string>(response.body);
    return g_bytes_new_with_free_func(body->data(), body->size(), destroyShared,
                                      new std::shared_ptr<const std::string>(body));
}

void writeHeaders(SoupMessageHeaders* headers, const Response& response) {
    for (const Header& header : usualHeaders)
        soup_message_headers_replace(headers, header.name, header.value);
    if (!response.type.empty())
        soup_message_headers_replace(headers, "Content-Type", response.type.c_str());
    for (const auto& [name, value] : response.headers) {
        if (name == "Set-Cookie")
            soup_message_headers_append(headers, name.c_str(), value.c_str());
        else
            soup_message_headers_replace(headers, name.c_str(), value.c_str());
    }
}

void writeAnswer(SoupServerMessage* message, const Response& response) {
    soup_server_message_set_status(message, static_cast<guint>(response.status), nullptr);
    writeHeaders(soup_server_message_get_response_headers(message), response);
    SoupMessageBody* body = soup_server_message_get_response_body(message);
    GBytes* bytes = bytesOf(response);
    if (g_bytes_get_size(bytes) > 0)
        soup_message_body_append_bytes(body, bytes);
    soup_message_body_complete(body);
    g_bytes_unref(bytes);
}

Texts readHeaders(SoupMessageHeaders* headers) {
    Texts texts;
    SoupMessageHeadersIter iterator;
    soup_message_headers_iter_init(&iterator, headers);
    const char* name = nullptr;
    const char* value = nullptr;
    while (soup_message_headers_iter_next(&iterator, &name, &value))
        texts.emplace(lower(name), value);
    return texts;
}

std::string mediaType(const Texts& headers) {
    const auto found = headers.find("content-type");
    if (found == headers.end())
        return {};
    const std::string type = lower(found->second);
    const std::size_t end = type.find_last_not_of(" \t", type.find(';') - 1);
    return type.substr(0, end + 1);
}

std::string readBody(SoupServerMessage* message) {
    GBytes* bytes = soup_message_body_flatten(soup_server_message_get_request_body(message));
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
    std::string body(data == nullptr ? "" : std::string(data, size));
    g_bytes_unref(bytes);
    return body;
}

} // namespace

Exchange::Exchange(SoupServerMessage* message, std::shared_ptr<Connection> connection)
    : message_(shared(message)), connection_(std::move(connection)) {}

Exchange::~Exchange() {
    if (message_ != nullptr)
        answer(errorResponse(500, "The panel could not answer this request"));
}

void Exchange::hold() {
    soup_server_message_pause(message_.get());
    held_ = true;
}

void Exchange::answer(const Response& response) {
    if (message_ == nullptr)
        return;
    const GObjectPointer<SoupServerMessage> message = std::move(message_);
    writeAnswer(message.get(), hasGoodHeaders(response)
                                   ? response
                                   : errorResponse(500, "The panel could not answer this request"));
    if (held_)
        soup_server_message_unpause(message.get());
}

std::unique_ptr<Request> readRequest(SoupServerMessage* message) {
    auto request = std::make_unique<Request>();
    GUri* uri = soup_server_message_get_uri(message);
    const char* query = g_uri_get_query(uri);
    auto path = decoded(g_uri_get_path(uri));
    auto fields = decodedFields(query == nullptr ? "" : query);
    if (!path || !fields)
        return nullptr;
    request->method = soup_server_message_get_method(message);
    if (request->method == "HEAD")
        request->method = "GET";
    request->path = std::move(*path);
    request->query = std::move(*fields);
    request->headers = readHeaders(soup_server_message_get_request_headers(message));
    request->type = mediaType(request->headers);
    request->body = readBody(message);
    if (request->type == "application/x-www-form-urlencoded") {
        auto form = decodedFields(request->body);
        if (!form)
            return nullptr;
        request->form = std::move(*form);
    }
    return request;
}

} // namespace panel
