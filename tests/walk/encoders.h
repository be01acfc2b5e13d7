// Scripted encoders: they answer a detection of a version 1 MJPEG encoder, or misbehave.
#pragma once

#include "tests/support/scripted_server.h"
#include "tests/walk/history.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace walk {

enum class Manner {
    good,
    slow,   // every answer after 150 ms
    closes, // closes the connection without an answer
    stalls, // never answers; camera presets are answered
    denies, // 401 for parameters, 404 for video
    talksNonsense,
};
inline constexpr int manners = 6;

// One encoder on its own port. Its own threads answer.
class ScriptedEncoder {
public:
    ScriptedEncoder();

    std::string address() const { return "127.0.0.1:" + std::to_string(server_->port()); }
    void behave(Manner manner) { manner_ = manner; }
    Manner manner() const { return manner_; }
    std::vector<Line> lines() const; // video delivered, presets moved to

private:
    std::string answer(const std::string& request);
    void note(Kind kind, const std::string& text);

    std::atomic<Manner> manner_ = Manner::good;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    std::unique_ptr<scripted::Server> server_; // last: its threads use all above
};

} // namespace walk
