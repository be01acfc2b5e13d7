#include "appliance/gateway/cameras/rtsp_dialogue.h"

#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr int mostAttempts = 3;

} // namespace

RtspDialogue::RtspDialogue(EventLoop& loop, Transfers& transfers, const CameraUrl& url,
                           const SessionTimes& times, DialogueEvents events)
    : loop_(loop), url_(url), times_(times), events_(std::move(events)),
      connection_(loop, transfers, url_,
                  {.connected = [this] { events_.connected(); },
                   .received =
                       [this](std::string_view bytes) {
                           if (!reader_.feed(bytes.data(), bytes.size()))
                               end({Fault::notUnderstood, url_.place() + " does not speak RTSP"});
                       },
                   .pause = [this] { events_.pause(); },
                   .ended = [this](const Failure& failure) { end(failure); }}),
      credentials_(url_.user, url_.password),
      reader_({.message = [this](streams::RtspMessage&& message) { onMessage(message); },
               .packet =
                   [this](int channel, std::string_view packet) {
                       if (!over_)
                           events_.packet(channel, packet);
                   }}) {}

RtspDialogue::~RtspDialogue() {
    loop_.cancel(answerTimer_);
}

void RtspDialogue::open() {
    connection_.open(times_.connect);
}

std::string RtspDialogue::headOf(const std::string& method, const std::string& url) {
    const std::string answer = credentials_.answer(method, url);
    return method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(++sequence_) +
           "\r\nUser-Agent: decoder\r\n" + (answer.empty() ? "" : "Authorization: " + answer + "\r\n");
}

void RtspDialogue::request(const std::string& method, const std::string& url, const std::string& headers,
                           bool patient) {
    method_ = method;
    target_ = url;
    headers_ = headers;
    patient_ = patient;
    attempts_ = 0;
    sendAgain();
}

void RtspDialogue::sendAgain() {
    ++attempts_;
    connection_.send(headOf(method_, target_) + headers_ + "\r\n");
    if (!patient_ && !over_)
        expectAnswer();
}

void RtspDialogue::expectAnswer() {
    loop_.cancel(answerTimer_);
    answerTimer_ = loop_.after(times_.answer, [this] {
        answerTimer_ = 0;
        end({Fault::noAnswer, url_.place() + " does not answer " + method_});
    });
}

void RtspDialogue::onMessage(const streams::RtspMessage& message) {
    // Some servers leave the number out.
    const bool expected = message.sequence() == sequence_ || message.sequence() == -1;
    if (message.status == 0 || !expected || over_)
        return;
    loop_.cancel(answerTimer_);
    if (message.status == 401 && attempts_ < mostAttempts && credentials_.challenge(message.challenges()))
        return sendAgain();
    events_.answered(message);
}

void RtspDialogue::sayGoodbye(const std::string& method, const std::string& url, const std::string& headers) {
    stop();
    connection_.send(headOf(method, url) + headers + "\r\n");
    connection_.close();
}

void RtspDialogue::sendPacket(int channel, std::string_view packet) {
    std::string bytes{'$', static_cast<char>(channel), static_cast<char>(packet.size() >> 8),
                      static_cast<char>(packet.size() & 255)};
    bytes += packet;
    connection_.send(bytes);
}

void RtspDialogue::close() {
    stop();
    connection_.close();
}

void RtspDialogue::stop() {
    over_ = true;
    loop_.cancel(answerTimer_);
}

void RtspDialogue::end(const Failure& failure) {
    if (over_)
        return;
    close();
    events_.ended(failure);
}

} // namespace gateway
