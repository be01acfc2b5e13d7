#include "appliance/panel/page/basic_page.h"

#include "appliance/panel/web/request.h"
#include "appliance/panel/web/router.h"

#include <charconv>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace panel {

namespace {

using nlohmann::json;

// What the page is made of, while the API answers one part after the other.
struct Page {
    Request request;
    Answer answer;
    int httpStatus = 200;
    std::string notice = {};
    json status = {};
    json sources = {};
};

std::string textOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return object.is_object() && found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

int numberOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return object.is_object() && found != object.end() && found->is_number_integer() ? found->get<int>() : -1;
}

bool isSet(const json& object, const char* key) {
    const auto found = object.find(key);
    return object.is_object() && found != object.end() && found->is_boolean() && found->get<bool>();
}

std::string document(const std::string& title, const std::string& body) {
    return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
           escapedHtml(title) +
           "</title>\n<link rel=\"icon\" type=\"image/svg+xml\" href=\"/assets/favicon.svg\">\n"
           "<link rel=\"stylesheet\" href=\"/assets/panel.css\">\n"
           "<link rel=\"stylesheet\" href=\"/assets/parts.css\">\n</head>\n<body class=\"basic\">\n<main>\n" +
           body + "</main>\n</body>\n</html>\n";
}

// What the decoder does, in a sentence.
std::string stateText(const json& status) {
    if (!status.is_object() || status.empty()) {
        return "The decoder's state is not known.";
    }
    if (numberOf(status, "supervisorPid") < 0) {
        return "No decoder is running.";
    }
    if (!isSet(status, "connected")) {
        return isSet(status, "connectWanted") ? "The decoder is locked or about to connect."
                                              : "The decoder is disconnected.";
    }
    const std::string name = textOf(status, "sourceName");
    const std::string error = textOf(status, "error");
    if (!error.empty()) {
        return name + ": " + error + ".";
    }
    return name.empty() ? "The decoder shows no source." : "The decoder shows " + name + ".";
}

// Its error, if it has one: {"code", "text"} or a text.
std::string errorOf(const json& source) {
    const auto found = source.find("error");
    if (found != source.end() && found->is_object()) {
        return textOf(*found, "text");
    }
    return textOf(source, "error");
}

std::string selectForm(int index, const std::string& name, const BasicVisitor& visitor) {
    return "<form method=\"post\" action=\"/basic/select\">"
           "<input type=\"hidden\" name=\"csrf\" value=\"" +
           escapedHtml(visitor.csrf) + "\"><input type=\"hidden\" name=\"source\" value=\"" +
           std::to_string(index) + "\"><button>Show " + escapedHtml(name) + "</button></form>";
}

std::string sourceItem(const json& source, int current, const BasicVisitor& visitor) {
    const int index = numberOf(source, "index");
    const std::string name = textOf(source, "name");
    const std::string error = errorOf(source);
    std::string item = "<li><div><strong>" + escapedHtml(name) + "</strong>";
    item += index == current ? " (on the screen)" : "";
    item += error.empty() ? "" : "<p class=\"reason\">" + escapedHtml(error) + "</p>";
    item += "</div>";
    return item + (visitor.maySelect ? selectForm(index, name, visitor) : "") + "</li>\n";
}

const json& listOf(const json& sources) {
    static const json none = json::array();
    if (sources.is_array()) {
        return sources;
    }
    const auto found = sources.find("sources");
    return sources.is_object() && found != sources.end() && found->is_array() ? *found : none;
}

Response html(std::string body, int status = 200) {
    Response response;
    response.status = status;
    response.type = "text/html; charset=utf-8";
    response.body = std::move(body);
    response.headers.emplace_back("Cache-Control", "no-store");
    return response;
}

json parsed(const Response& response) {
    json value = json::parse(response.sharedBody ? *response.sharedBody : response.body, nullptr, false);
    return value.is_discarded() ? json::object() : value;
}

// Asks a route of the API on behalf of the visitor, who must have the route's role.
void ask(const Router& router, Request request, const std::function<void(Response)>& answer) {
    const Router::Found found = router.find(request.method, request.path);
    if (found.route == nullptr || !found.route->handler || request.role < found.route->rules.least) {
        answer(errorResponse(404, "not available"));
        return;
    }
    request.parts = found.parts;
    found.route->handler(request, answer);
}

Request apiRequest(const Request& from, std::string method, std::string path) {
    Request request = from;
    request.method = std::move(method);
    request.path = std::move(path);
    request.query.clear();
    request.form.clear();
    request.body.clear();
    request.type.clear();
    return request;
}

BasicVisitor visitorOf(const Request& request) {
    return {request.role >= Role::Operator, request.account, request.csrf};
}

// Answers with the page, after it has asked for status and sources.
void answerPage(const Router& router, const std::shared_ptr<Page>& page) {
    ask(router, apiRequest(page->request, "GET", "/api/v1/status"), [&router, page](const Response& status) {
        page->status = parsed(status);
        ask(router, apiRequest(page->request, "GET", "/api/v1/sources"), [page](const Response& sources) {
            page->sources = parsed(sources);
            page->answer(
                html(basicDocument(page->status, page->sources, visitorOf(page->request), page->notice),
                     page->httpStatus));
        });
    });
}

void select(const Router& router, const Request& request, const Answer& answer) {
    const auto field = request.form.find("source");
    const std::string wanted = field == request.form.end() ? "" : field->second;
    int index = -1;
    const auto [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), index);
    if (error != std::errc() || end != wanted.data() + wanted.size() || index < 0) {
        answer(errorResponse(400, "the field \"source\" has to be the number of a source"));
        return;
    }
    const auto page = std::make_shared<Page>(Page{request, answer});
    Request inner = apiRequest(request, "POST", "/api/v1/select");
    inner.type = "application/json";
    inner.body = json{{"source", index}}.dump();
    ask(router, std::move(inner), [&router, page](const Response& done) {
        const json said = parsed(done);
        page->httpStatus = done.status;
        page->notice = textOf(said, done.status < 400 ? "message" : "error");
        answerPage(router, page);
    });
}

} // namespace

std::string escapedHtml(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

std::string basicDocument(const json& status, const json& sources, const BasicVisitor& visitor,
                          const std::string& notice) {
    const int current = isSet(status, "connected") ? numberOf(status, "currentSource") : -1;
    const std::string decoder = textOf(status, "decoder");
    const std::string title = decoder.empty() ? "Decoder" : decoder;
    std::string body = "<section class=\"card\">\n<h1>" + escapedHtml(title) + "</h1>\n";
    body += notice.empty() ? "" : "<p class=\"good-news\">" + escapedHtml(notice) + "</p>\n";
    body += "<p>" + escapedHtml(stateText(status)) + " <a href=\"/basic\">Look again</a></p>\n";
    body +=
        "<img class=\"big-still\" src=\"/api/v1/snapshot.png\" alt=\"The monitor's picture\">\n</section>\n";
    body += "<section class=\"card\">\n<h2>Sources</h2>\n<ol class=\"basic-sources\">\n";
    for (const json& source : listOf(sources)) {
        body += sourceItem(source, current, visitor);
    }
    body += "</ol>\n</section>\n<p class=\"hint\">" + escapedHtml(visitor.account) +
            " · <a href=\"/\">The whole page, with JavaScript</a></p>\n";
    return document(title, body);
}

std::string basicLogIn(const std::string& refused) {
    const std::string reason = refused == "wrong" ? "The name or the password is wrong."
                               : refused == "wait"
                                   ? "There were too many tries. Wait a minute, then try again."
                                   : "";
    return document(
        "Log in",
        "<section class=\"card narrow\">\n<h1>Log in</h1>\n" +
            (reason.empty() ? "" : "<p class=\"reason\">" + reason + "</p>\n") +
            "<form method=\"post\" action=\"/login\">\n"
            "<input type=\"hidden\" name=\"next\" value=\"/basic\">\n"
            "<label class=\"field\">Name <input name=\"user\" autocomplete=\"username\" required></label>\n"
            "<label class=\"field\">Password <input name=\"password\" type=\"password\" "
            "autocomplete=\"current-password\" required></label>\n"
            "<button class=\"primary wide\">Log in</button>\n</form>\n</section>\n");
}

void addBasicPage(Router& router) {
    router.add("GET", "/basic", Role::None, [&router](const Request& request, const Answer& answer) {
        if (request.role < Role::Viewer) {
            const auto refused = request.query.find("login");
            answer(html(basicLogIn(refused == request.query.end() ? "" : refused->second)));
            return;
        }
        answerPage(router, std::make_shared<Page>(Page{request, answer}));
    });
    router.add("POST", "/basic/select", Role::Operator,
               [&router](const Request& request, const Answer& answer) { select(router, request, answer); });
}

} // namespace panel
