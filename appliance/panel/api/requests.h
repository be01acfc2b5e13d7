// Reading requests of the API and making its answers. Main loop's thread.
#pragma once

#include "appliance/panel/web/request.h"
#include "appliance/panel/web/router.h"
#include "appliance/panel/web/worker.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace panel {

class Metrics;

// A request that is refused as it is, with that status. The text is a sentence for people.
class RequestRefused : public std::runtime_error {
public:
    RequestRefused(int status, const std::string& sentence) : std::runtime_error(sentence), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

// A JSON object with only the keys that it may have. Everything wrong is a RequestRefused, in words that name the key.
class Body {
public:
    static constexpr std::size_t longestText = 2000; // bytes

    // The request's body; an empty one is an object without keys.
    Body(const Request& request, std::initializer_list<std::string_view> keys);
    // The same with any keys.
    explicit Body(const Request& request);
    ~Body();
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    bool has(std::string_view key) const;
    std::string text(std::string_view key) const;                             // has to be there and not empty
    std::string text(std::string_view key, const std::string& missing) const; // may be empty
    long number(std::string_view key, long least, long most) const;           // has to be there
    bool flag(std::string_view key) const;                                    // has to be there
    bool flag(std::string_view key, bool missing) const;
    const nlohmann::json& value(std::string_view key) const; // has to be there
    const nlohmann::json& object() const { return *object_; }

private:
    std::unique_ptr<nlohmann::json> object_;
};

// {"message": sentence}; passwords in URLs are hidden, here and in refusals.
Response messageResponse(const std::string& sentence, int status = 200);
Response objectResponse(const nlohmann::json& object, int status = 200);

// 409 for what an operator is refused, the status of a RequestRefused, 503 with a log line for anything else.
Response failureResponse(const std::exception_ptr& failure);

// Adds the API's routes: counts what is answered, and turns exceptions into answers.
class Routes {
public:
    Routes(Router& router, Metrics& metrics) : router_(router), metrics_(metrics) {}
    void add(const std::string& method, const std::string& pattern, const RouteRules& rules, Handler handler);
    void add(const std::string& method, const std::string& pattern, Role least, Handler handler);

private:
    Router& router_;
    Metrics& metrics_;
};

// Runs the task on the worker's thread and answers with what it returns. 503 when too many tasks wait. `after` runs on the
// main loop's thread before the answer, if the task has succeeded.
void answerFrom(Worker& worker, const Answer& answer, std::function<Response()> task,
                std::function<void()> after = nullptr);

} // namespace panel
