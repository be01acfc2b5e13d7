#include "appliance/panel/api/requests.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/api/metrics.h"
#include "appliance/reporting/json_text.h"
#include "appliance/settings/secrets.h"

#include <libcommon/log.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

namespace panel {
namespace {

using nlohmann::json;

json parsed(const Request& request) {
    if (request.body.empty())
        return json::object();
    if (request.type != "application/json")
        throw RequestRefused(415, "the body has to be JSON, with the type application/json");
    json body = json::parse(request.body, nullptr, false);
    if (!body.is_object())
        throw RequestRefused(400, "the body has to be a JSON object");
    return body;
}

std::string named(std::string_view key, const char* rest) {
    return '"' + std::string(key) + "\" " + rest;
}

} // namespace

Body::Body(const Request& request) : object_(std::make_unique<json>(parsed(request))) {}

Body::Body(const Request& request, std::initializer_list<std::string_view> keys) : Body(request) {
    for (const auto& [key, value] : object_->items()) {
        if (std::ranges::find(keys, key) == keys.end())
            throw RequestRefused(400, named(key, "is not known here"));
    }
}

Body::~Body() = default;

bool Body::has(std::string_view key) const {
    return object_->contains(key);
}

const json& Body::value(std::string_view key) const {
    const auto found = object_->find(key);
    if (found == object_->end())
        throw RequestRefused(400, named(key, "is missing"));
    return *found;
}

std::string Body::text(std::string_view key) const {
    const json& found = value(key);
    if (!found.is_string() || found.get_ref<const std::string&>().empty())
        throw RequestRefused(400, named(key, "has to be a text"));
    return text(key, "");
}

std::string Body::text(std::string_view key, const std::string& missing) const {
    if (!has(key))
        return missing;
    const json& found = value(key);
    if (!found.is_string())
        throw RequestRefused(400, named(key, "has to be a text"));
    auto text = found.get<std::string>();
    if (text.size() > longestText)
        throw RequestRefused(400, named(key, "is too long"));
    if (text.find('\0') != std::string::npos)
        throw RequestRefused(400, named(key, "has a character that is not allowed"));
    return text;
}

long Body::number(std::string_view key, long least, long most) const {
    const json& found = value(key);
    const bool good = found.is_number_integer() && found >= least && found <= most;
    if (!good)
        throw RequestRefused(400, named(key, "has to be a whole number from ") + std::to_string(least) +
                                      " to " + std::to_string(most));
    return found.get<long>();
}

bool Body::flag(std::string_view key) const {
    const json& found = value(key);
    if (!found.is_boolean())
        throw RequestRefused(400, named(key, "has to be true or false"));
    return found.get<bool>();
}

bool Body::flag(std::string_view key, bool missing) const {
    return has(key) ? flag(key) : missing;
}

Response messageResponse(const std::string& sentence, int status) {
    return objectResponse({{"message", withoutSecrets(sentence)}}, status);
}

Response objectResponse(const json& object, int status) {
    return jsonResponse(jsonLine(object), status);
}

Response failureResponse(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const RequestRefused& refused) {
        return errorResponse(refused.status(), withoutSecrets(refused.what()));
    } catch (const Refused& refused) {
        return errorResponse(409, withoutSecrets(refused.what()));
    } catch (const std::exception& error) {
        logmsg(3, "The panel could not answer a request: %s", withoutSecrets(error.what()).c_str());
        return errorResponse(503, "this did not work; the journal says why");
    }
}

void Routes::add(const std::string& method, const std::string& pattern, const RouteRules& rules,
                 Handler handler) {
    router_.add(method, pattern, rules,
                [&metrics = metrics_, method, pattern, handler = std::move(handler)](const Request& request,
                                                                                     const Answer& answer) {
                    const Answer counted = [&metrics, method, pattern, answer](Response response) {
                        metrics.request(method, pattern, response.status);
                        answer(std::move(response));
                    };
                    try {
                        handler(request, counted);
                    } catch (...) {
                        counted(failureResponse(std::current_exception()));
                    }
                });
}

void Routes::add(const std::string& method, const std::string& pattern, Role least, Handler handler) {
    RouteRules rules;
    rules.least = least;
    add(method, pattern, rules, std::move(handler));
}

void answerFrom(Worker& worker, const Answer& answer, std::function<Response()> task,
                std::function<void()> after) {
    const auto response = std::make_shared<Response>();
    const bool taken =
        worker.run([response, task = std::move(task)] { *response = task(); },
                   [response, answer, after = std::move(after)](const std::exception_ptr& failure) {
                       if (failure)
                           return answer(failureResponse(failure));
                       if (after)
                           after();
                       answer(std::move(*response));
                   });
    if (!taken)
        answer(errorResponse(503, "the decoder is busy with other requests: try again in a moment"));
}

} // namespace panel
