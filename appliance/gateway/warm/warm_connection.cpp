#include "appliance/gateway/warm/warm_connection.h"

#include <utility>

namespace gateway {
namespace {

// A player takes several megabytes in a second. One that lets so much wait is too slow for the stream.
constexpr std::size_t mostWaiting = 8 * 1024 * 1024;

} // namespace

WarmConnection::WarmConnection(EventLoop& loop, int fd, Answers answers, std::function<void()> over)
    : answers_(std::move(answers)), over_(std::move(over)),
      socket_(
          loop, fd, [this](std::string_view bytes) { received(bytes); }, [this] { end(); }) {}

WarmConnection::~WarmConnection() {
    if (stream_ != nullptr)
        stream_->leave(taker_);
}

// After its request a client says nothing more.
void WarmConnection::received(std::string_view bytes) {
    if (answered_)
        return;
    request_ += bytes;
    const std::size_t line = request_.find('\n');
    if (line != std::string::npos)
        answer(request_.substr(0, line));
    else if (request_.size() > streams::longestKeptRequest)
        end();
}

void WarmConnection::answer(const std::string& request) {
    constexpr std::string_view takes = "take ";
    answered_ = true;
    if (request.starts_with(takes))
        return take(request.substr(takes.size()));
    if (request == "status")
        send(streams::KeptFrame::status, answers_.status());
    else
        send(streams::KeptFrame::notKept, "the request is not understood");
    socket_.endAfterSending(true);
    socket_.flush();
}

void WarmConnection::take(const std::string& address) {
    WarmStream* stream = answers_.find(address);
    joining_ = true;
    taker_ = stream == nullptr ? 0 : stream->join(taker());
    joining_ = false;
    if (taker_ != 0 && ended_)
        return stream->leave(taker_);
    if (taker_ != 0) {
        stream_ = stream;
        return;
    }
    send(streams::KeptFrame::notKept, "the stream is not kept");
    socket_.endAfterSending(true);
    socket_.flush();
}

WarmTaker WarmConnection::taker() {
    return {.description =
                [this](const streams::KeptDescription& description) {
                    send(streams::KeptFrame::description, streams::writeKeptDescription(description));
                },
            .item = [this](const KeptItem& item, bool start) { takeItem(item, start); },
            .live = [this] { send(streams::KeptFrame::live, ""); },
            .flush = [this] { socket_.flush(); },
            .ended =
                [this](const std::string& reason) {
                    stream_ = nullptr;
                    send(streams::KeptFrame::ended, reason);
                    socket_.endAfterSending(true);
                    socket_.flush();
                }};
}

void WarmConnection::takeItem(const KeptItem& item, bool start) {
    const bool dropped = dropping_;
    const std::size_t waiting = socket_.waiting();
    if (!joining_)
        dropping_ = dropping_ ? !start || waiting > mostWaiting / 2 : waiting > mostWaiting;
    if (dropping_)
        return;
    if (dropped && item.before != nullptr)
        send(item.kind, *item.before);
    send(item.kind, *item.bytes);
}

void WarmConnection::send(streams::KeptFrame kind, std::string_view content) {
    socket_.send(streams::keptHeader(kind, content.size()));
    socket_.send(content);
}

void WarmConnection::end() {
    if (std::exchange(ended_, true))
        return;
    socket_.stop();
    if (WarmStream* stream = std::exchange(stream_, nullptr); stream != nullptr)
        stream->leave(taker_);
    over_();
}

} // namespace gateway
