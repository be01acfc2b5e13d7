#include "appliance/encoder/rtsp_session.h"

#include "appliance/encoder/http_faults.h"
#include "appliance/encoder/http_session.h"
#include "appliance/encoder/log.h"
#include "appliance/encoder/rtsp_transport.h"
#include "appliance/encoder/sdp.h"

#include <algorithm>
#include <array>
#include <random>

namespace {

constexpr std::chrono::seconds idleTime(60); // told to clients as the session's time limit
constexpr std::chrono::seconds writeTime(10);
constexpr std::chrono::seconds describeTime(3);
constexpr std::chrono::milliseconds watchTime(250);
constexpr std::size_t maxBodyBytes = 64 * 1024;
constexpr std::string_view pathStart = "/mpeg4/";
constexpr std::string_view pathEnd = "/media.orv";

std::string newSessionId(bool decimal) {
    static thread_local std::mt19937 random(std::random_device{}());
    const unsigned number = std::uniform_int_distribution<unsigned>(10000000, 99999999)(random);
    return (decimal ? "" : "s-") + std::to_string(number);
}

// Protocol violations that faults ask for.
void sendEarlyData(Connection& connection) {
    for (int i = 0; i < 3; ++i)
        connection.write({interleaved(0, "\x80\x60" + std::string(200, '\0'))}, in(writeTime));
}

} // namespace

std::optional<MediaPath> mediaPathOf(std::string_view path) {
    if (!path.starts_with(pathStart))
        return std::nullopt;
    path.remove_prefix(pathStart.size());
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    const auto number = name == "quad" ? std::optional<int>(0) : wholeNumber(name);
    if (!number || !path.starts_with(pathEnd))
        return std::nullopt;
    path.remove_prefix(pathEnd.size());
    if (!path.empty() && path.front() != '/')
        return std::nullopt;
    while (!path.empty() && path.front() == '/')
        path.remove_prefix(1);
    return MediaPath{*number, std::string(path)};
}

std::string descriptionOf(Device& device, int channel, const std::string& localAddress) {
    Channel* const found = device.channel(channel);
    if (found == nullptr || !found->rtsp)
        return {};
    const AccessUnitPtr key = found->rtsp->sampleKey(describeTime);
    if (!key)
        return {};
    return describeRtsp(device.options.codec, *key, device.options.name, localAddress, device.options.track,
                        found->rtsp->fps());
}

RtspSession::RtspSession(Device& device, Connection& connection, std::uint64_t number, Tunnel* tunnel)
    : device_(device), connection_(connection), number_(number), tunnel_(tunnel) {}

RtspSession::~RtspSession() {
    endStream();
}

void RtspSession::endStream() {
    sender_.reset();
    output_.reset();
    if (group_ != nullptr && playing_)
        group_->leave();
    group_ = nullptr;
    playing_ = false;
    session_.clear();
}

void RtspSession::run() {
    while (goOn_ && !device_.stopping() && readRequest())
        handle();
}

// A tunnel knows nothing of the connection that the answers take.
long RtspSession::read(char* buffer, std::size_t size, Deadline deadline) {
    if (tunnel_ == nullptr)
        return connection_.read(buffer, size, deadline);
    while (!device_.stopping() && !connection_.peerHasLeft()) {
        const long count = tunnel_->read(buffer, size, std::min(deadline, in(watchTime)));
        if (count != Connection::timedOut || in({}) >= deadline)
            return count;
    }
    return Connection::endOfStream;
}

bool RtspSession::readMore(Deadline deadline) {
    std::array<char, 4096> buffer{};
    const long count = read(buffer.data(), buffer.size(), deadline);
    if (count > 0)
        pending_.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

// A receiver's reports come as packets between its requests. True when one was passed over.
bool RtspSession::skipInterleaved() {
    if (pending_.size() < 4 || pending_[0] != '$')
        return false;
    const std::size_t size =
        4 + static_cast<std::uint8_t>(pending_[2]) * 256U + static_cast<std::uint8_t>(pending_[3]);
    if (pending_.size() < size)
        return false;
    pending_.erase(0, size);
    return true;
}

bool RtspSession::readRequest() {
    std::optional<std::size_t> length;
    while (true) {
        while (skipInterleaved()) {
        }
        const bool packet = !pending_.empty() && pending_[0] == '$';
        pending_.erase(0, std::min(pending_.find_first_not_of("\r\n"), pending_.size()));
        if (!packet && (length = headLength(pending_)))
            break;
        // A packet may be longer than a head, by its length field at most 64 KB.
        if (!packet && pending_.size() > maxHeadBytes)
            return false;
        const Deadline deadline = in(idleTime + std::chrono::seconds(5));
        if (!readMore(deadline) && !(playing_ && in({}) >= deadline))
            return false;
    }
    requestTime_ = millisecondsSince1970();
    std::optional<Request> request = parseHead(pending_.substr(0, *length));
    pending_.erase(0, *length);
    request_ = request ? std::move(*request) : Request{};
    if (!request || request_.protocol != "RTSP") {
        goOn_ = false;
        send({400, {}, {}}, device_.faults.current());
        return false;
    }
    return skipBody();
}

bool RtspSession::skipBody() {
    const auto size = wholeNumber(request_.header("Content-Length").value_or("0"));
    if (!size || *size > static_cast<int>(maxBodyBytes))
        return false;
    const Deadline deadline = in(idleTime);
    while (pending_.size() < static_cast<std::size_t>(*size)) {
        if (!readMore(deadline))
            return false;
    }
    pending_.erase(0, static_cast<std::size_t>(*size));
    return true;
}

void RtspSession::record(int status) {
    const std::string_view credentials = request_.header("Authorization").value_or("");
    if (device_.options.verbosity > 0)
        logLine(connection_.peerAddress() + " " + request_.method + " " + request_.target + " " +
                std::to_string(status));
    device_.requests.add({"rtsp", request_.method, request_.target, Authenticator::claimedUser(credentials),
                          status, requestTime_, number_});
}

void RtspSession::handle() {
    const FaultSet faults = device_.faults.current();
    connection_.setByteDelay(std::chrono::milliseconds(faults.number(Fault::Slow)));
    if (faults.has(Fault::Delay))
        connection_.sleepUntil(in(std::chrono::milliseconds(faults.number(Fault::Delay))));
    if (const auto fault = answeringFault(faults)) {
        goOn_ = false;
        record(0);
        answerWithFault(*fault, device_, connection_, "RTSP/1.0");
        return;
    }
    Answer answer;
    if (!refused(faults, answer))
        answer = answerTo();
    send(answer, faults);
    // After the answer: media must not come before it, and nobody shall wait for a stream to end.
    if (answer.status != 200)
        return;
    if (request_.method == "PLAY" && sender_)
        sender_->start();
    else if (request_.method == "TEARDOWN")
        endStream();
}

bool RtspSession::refused(const FaultSet& faults, Answer& answer) {
    if (faults.has(Fault::NotFound)) {
        answer = {404, {}, {}};
        return true;
    }
    const bool open = request_.method == "OPTIONS" ||
                      device_.authenticator.basicAccepted(request_.header("Authorization").value_or(""));
    if (open && !faults.has(Fault::Unauthorised))
        return false;
    answer = {401, "WWW-Authenticate: " + device_.authenticator.basicChallenge() + "\r\n", {}};
    return true;
}

RtspSession::Answer RtspSession::answerTo() {
    const std::string& method = request_.method;
    if (method == "OPTIONS")
        return {200, "Public: OPTIONS, DESCRIBE, SETUP, PLAY, PAUSE, TEARDOWN, GET_PARAMETER\r\n", {}};
    const std::optional<MediaPath> path = mediaPathOf(request_.path());
    if (method == "DESCRIBE")
        return path && path->track.empty() ? describe(path->channel) : Answer{404, {}, {}};
    if (method == "SETUP")
        return path ? setUp(*path) : Answer{404, {}, {}};
    if (method != "PLAY" && method != "PAUSE" && method != "TEARDOWN" && method != "GET_PARAMETER" &&
        method != "SET_PARAMETER")
        return {501, {}, {}};

    // The rest is about a session; only GET_PARAMETER, which keeps a connection alive, may come without one.
    const std::string_view header = request_.header("Session").value_or("");
    const bool known = !session_.empty() && trimmed(header.substr(0, header.find(';'))) == session_;
    if (!known && !(method == "GET_PARAMETER" && header.empty()))
        return {454, {}, {}};
    if (method == "PLAY")
        return play();
    if (method == "PAUSE")
        return {501, {}, {}}; // live pictures do not wait
    return {};
}

RtspSession::Answer RtspSession::describe(int channel) {
    const std::string text = descriptionOf(device_, channel, connection_.localAddress());
    if (text.empty())
        return {device_.channel(channel) == nullptr ? 404 : 503, {}, {}};
    return {200, "Content-Base: " + request_.target + "/\r\nContent-Type: application/sdp\r\n", text};
}

RtspSession::Answer RtspSession::setUp(const MediaPath& path) {
    Channel* const channel = device_.channel(path.channel);
    if (channel == nullptr || !channel->rtsp || (!path.track.empty() && path.track != device_.options.track))
        return {404, {}, {}};
    if (playing_)
        return {455, {}, {}};
    endStream();
    // Alternatives stand in the order in which the client likes them.
    std::string_view wishes = request_.header("Transport").value_or("");
    while (!wishes.empty()) {
        const std::string_view wish = trimmed(wishes.substr(0, wishes.find(',')));
        wishes.remove_prefix(std::min(wishes.find(','), wishes.size() - 1) + 1);
        std::string reply;
        if (!offer(parseTransport(wish), *channel, reply))
            continue;
        stream_ = channel->rtsp.get();
        session_ = newSessionId(device_.options.decimalSessions);
        return {200, "Transport: " + reply + "\r\n", {}};
    }
    return {461, {}, {}};
}

// Prepares the way that the client wishes for, if the encoder has it, and says so in `reply`.
bool RtspSession::offer(const Transport& wish, Channel& channel, std::string& reply) {
    const Options& options = device_.options;
    switch (wish.kind) {
    case Transport::Kind::None:
        return false;
    case Transport::Kind::Multicast:
        if (tunnel_ != nullptr || !channel.rtspMulticast)
            return false;
        group_ = channel.rtspMulticast.get();
        reply = multicastReply(group_->place());
        return true;
    case Transport::Kind::Unicast: {
        if (tunnel_ != nullptr || !options.offers(Kind::RtspUnicast))
            return false;
        // To the client itself and nowhere else, whatever it names as the destination.
        auto output = UdpOutput::open(connection_.localAddress(), connection_.peerAddress(), wish.first);
        if (!output)
            return false;
        reply = unicastReply(wish, output->localPort());
        output_ = std::move(output);
        return true;
    }
    case Transport::Kind::Interleaved:
        if (tunnel_ == nullptr && !options.offers(Kind::RtspTcp))
            return false;
        reply = interleavedReply(wish);
        output_ = std::make_unique<InterleavedOutput>(connection_, wish.first, wish.second);
        return true;
    }
    return false;
}

RtspSession::Answer RtspSession::play() {
    if (playing_)
        return {200, "Range: npt=now-\r\n", {}};
    if (group_ != nullptr) {
        if (!group_->join())
            return {503, {}, {}};
        playing_ = true;
        return {200, "Range: npt=now-\r\n", {}};
    }
    sender_ = std::make_unique<MediaSender>(*stream_, std::move(output_), device_.faults, &connection_);
    playing_ = true;
    std::string url = request_.target;
    if (!url.ends_with("/" + device_.options.track))
        url += (url.ends_with("/") ? "" : "/") + device_.options.track;
    return {200,
            "Range: npt=now-\r\nRTP-Info: url=" + url + ";seq=" + std::to_string(sender_->firstSequence()) +
                "\r\n",
            {}};
}

void RtspSession::send(const Answer& answer, const FaultSet& faults) {
    record(answer.status);
    std::string number(request_.header("CSeq").value_or("0"));
    if (faults.has(Fault::WrongCSeq))
        number = std::to_string(wholeNumber(number).value_or(0) + 1000);
    std::string text = "RTSP/1.0 " + std::to_string(answer.status) + " " + reasonOf(answer.status) +
                       "\r\nCSeq: " + number + "\r\nServer: video-encoder\r\n" + answer.headers;
    if (!session_.empty() && answer.status == 200 && !faults.has(Fault::NoSession))
        text += "Session: " + session_ + ";timeout=" + std::to_string(idleTime.count()) + "\r\n";
    if (!answer.body.empty())
        text += "Content-Length: " + std::to_string(answer.body.size()) + "\r\n";
    text += "\r\n" + answer.body;
    if (faults.has(Fault::EarlyData))
        sendEarlyData(connection_);
    const bool truncate = faults.has(Fault::Truncated);
    if (truncate)
        text.resize(std::min(text.size(), static_cast<std::size_t>(faults.number(Fault::Truncated))));
    if (!connection_.write({text}, in(writeTime)))
        goOn_ = false;
    ++answers_;
    if (truncate || (faults.has(Fault::CloseAfter) && answers_ >= faults.number(Fault::CloseAfter)))
        goOn_ = false;
}
