#include "tests/walk/encoders.h"

#include <thread>

namespace walk {

namespace {

constexpr const char* presetPath = "/vexo-cgi/com/ptz.cgi?gotoserverpresetname=";
constexpr std::chrono::milliseconds slowness{150};

std::string reply(const std::string& status, const std::string& body) {
    return "HTTP/1.0 " + status + "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

bool asks(const std::string& request, const std::string& path) {
    return request.find("GET " + path) == 0;
}

} // namespace

ScriptedEncoder::ScriptedEncoder() {
    using namespace scripted;
    // A stalling encoder answers with nothing and keeps the connection; all others close it.
    server_ = std::make_unique<Server>(Script{
        readRequest(), scripted::answer([this](const std::string& request) { return answer(request); }),
        closeWhen([this](const std::string& request) {
            return manner_ != Manner::stalls || asks(request, presetPath);
        }),
        stall()});
}

void ScriptedEncoder::note(Kind kind, const std::string& text) {
    Line line;
    line.time = now();
    line.kind = kind;
    line.text = text;
    const std::lock_guard guard(mutex_);
    lines_.push_back(line);
}

std::vector<Line> ScriptedEncoder::lines() const {
    const std::lock_guard guard(mutex_);
    return lines_;
}

std::string ScriptedEncoder::answer(const std::string& request) {
    if (asks(request, presetPath)) {
        const std::size_t start = std::string("GET ").size() + std::string(presetPath).size();
        note(Kind::moved, address() + ' ' + request.substr(start, request.find(' ', start) - start));
        return reply("200 OK", "");
    }
    switch (manner_) {
    case Manner::slow:
        std::this_thread::sleep_for(slowness);
        break;
    case Manner::closes:
    case Manner::stalls:
        return "";
    case Manner::talksNonsense:
        return std::string("\x00\xff\r\r\n nonsense \x01", 16);
    case Manner::denies:
        return asks(request, "/vexo-cgi/mjpg/") ? reply("404 Not Found", "") : reply("401 Unauthorized", "");
    case Manner::good:
        break;
    }
    if (asks(request, "/vexo-cgi/mjpg/video.cgi")) {
        note(Kind::video, address());
        return reply("200 OK", "a picture");
    }
    if (request.find("group=Brand.ProdFullName") != std::string::npos) {
        return reply("200 OK", "Brand.ProdFullName=Scripted\n");
    }
    return reply("404 Not Found", "");
}

} // namespace walk
