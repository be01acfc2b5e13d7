#include "appliance/input/container.h"

#include "appliance/input/track.h"
#include "appliance/input/web_access.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <sys/stat.h>

namespace input {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostLookedAt = 2000; // packets, until the first one of the video
// Microseconds. A longer pause in a file's times is left out.
constexpr std::int64_t longestHole = 4'000'000;
// Microseconds. What is later than this is not caught up with: players would see a burst.
constexpr std::int64_t latest = 100'000;
constexpr std::chrono::seconds longestWebOpening(9); // the gateway waits a little longer

std::int64_t microsecondsOf(std::int64_t time, AVRational unit) {
    return time == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : av_rescale_q(time, unit, microseconds);
}

class Container {
public:
    using Options = std::map<std::string, std::string>;

    // `place` as libavformat wants it. Takes the options; those of connections are for each that the stream opens.
    Container(std::string place, const char* protocols, Options options, Options connectionOptions = {})
        : place_(std::move(place)), protocols_(protocols), options_(std::move(options)),
          connectionOptions_(std::move(connectionOptions)) {}
    Container(const Container&) = delete; // libavformat has its address
    Container& operator=(const Container&) = delete;

    // From now on open() fails when it takes longer.
    void limitOpening(std::chrono::seconds limit) { openLimit_ = limit; }

    // The error of libavformat, or 0.
    int open() {
        AVDictionary* options = nullptr;
        av_dict_set(&options, "protocol_whitelist", protocols_, 0);
        for (const auto& [name, value] : options_)
            av_dict_set(&options, name.c_str(), value.c_str(), 0);
        AVFormatContext* context = avformat_alloc_context();
        context->opaque = this;
        openConnection_ = context->io_open;
        context->io_open = &Container::openWithOptions;
        context->interrupt_callback = {&Container::isLate, this};
        deadline_ = Clock::now() + openLimit_;
        late_ = false;
        const int error = avformat_open_input(&context, place_.c_str(), nullptr, &options);
        av_dict_free(&options);
        context_.reset(error < 0 ? nullptr : context);
        if (error < 0)
            return error;
        context_->flags |= AVFMT_FLAG_GENPTS;
        const int found = avformat_find_stream_info(context_.get(), nullptr);
        deadline_ = Clock::time_point::max();
        return late_ ? AVERROR_EXIT : found;
    }
    bool isAnswered() const { return context_ != nullptr; } // the format is known
    bool wasLate() const { return late_; }
    bool hasDuration() const { return context_->duration > 0; }
    bool hasSize() const { return context_->pb != nullptr && avio_size(context_->pb) > 0; }

    int best(AVMediaType type) const { return av_find_best_stream(context_.get(), type, -1, -1, nullptr, 0); }
    const AVStream& stream(int index) const { return *context_->streams[index]; }

    // False at the end, or after an error of the stream.
    bool read(AVPacket& packet) { return av_read_frame(context_.get(), &packet) >= 0; }

    bool rewind() {
        // Some formats promise to seek in a connection that can't.
        if (context_->pb != nullptr && context_->pb->seekable == 0)
            return open() >= 0;
        const std::int64_t start = context_->start_time == AV_NOPTS_VALUE ? 0 : context_->start_time;
        return avformat_seek_file(context_.get(), -1, INT64_MIN, start, start, 0) >= 0 || open() >= 0;
    }

private:
    static int openWithOptions(AVFormatContext* context, AVIOContext** connection, const char* url, int flags,
                               AVDictionary** options) {
        const auto& self = *static_cast<const Container*>(context->opaque);
        AVDictionary* own = nullptr;
        AVDictionary** all = options == nullptr ? &own : options;
        for (const auto& [name, value] : self.connectionOptions_)
            av_dict_set(all, name.c_str(), value.c_str(), 0);
        const int error = self.openConnection_(context, connection, url, flags, all);
        av_dict_free(&own);
        return error;
    }
    static int isLate(void* container) {
        auto& self = *static_cast<Container*>(container);
        self.late_ = self.late_ || Clock::now() > self.deadline_;
        return self.late_ ? 1 : 0;
    }

    std::string place_;
    const char* protocols_;
    Options options_;
    Options connectionOptions_;
    std::chrono::seconds openLimit_{3600};
    Clock::time_point deadline_ = Clock::time_point::max(); // of open()
    bool late_ = false;
    int (*openConnection_)(AVFormatContext*, AVIOContext**, const char*, int,
                           AVDictionary**) = nullptr; // libavformat's
    Av<AVFormatContext> context_;
};

// Sends the packets of a container. `paced`: each picture at its own time, and the sound between them.
class Playback {
public:
    Playback(const GatewaySocket& socket, Container& container, bool paced)
        : socket_(socket), container_(container), paced_(paced), output_(socket),
          videoIndex_(container.best(AVMEDIA_TYPE_VIDEO)), soundIndex_(container.best(AVMEDIA_TYPE_AUDIO)) {}

    bool hasVideo() const { return videoIndex_ >= 0; }

    // False when nothing can be read.
    bool prepare() {
        readAhead();
        if (ahead_.empty())
            return false;
        if (soundIndex_ >= 0)
            sound_ = soundTrack(output_, *container_.stream(soundIndex_).codecpar);
        const auto first = std::ranges::find_if(
            ahead_, [this](const Av<AVPacket>& packet) { return packet->stream_index == videoIndex_; });
        video_ = videoTrack(output_, *container_.stream(videoIndex_).codecpar,
                            first == ahead_.end() ? nullptr : first->get());
        return true;
    }

    // Up to the container's end. Returns how many packets there were.
    std::size_t playThrough() {
        std::size_t count = 0;
        for (Av<AVPacket> packet = next(); packet != nullptr; packet = next(), ++count)
            play(*packet);
        return count;
    }

    // The container begins again: its times go on where they ended.
    void rewind() {
        for (Track* track : {video_.get(), sound_.get()}) {
            if (track != nullptr)
                track->rewind();
        }
        shift_ = end_;
        first_ = AV_NOPTS_VALUE;
    }

private:
    void readAhead() {
        for (bool found = false; !found && ahead_.size() < mostLookedAt;) {
            Av<AVPacket> packet(av_packet_alloc());
            if (!container_.read(*packet))
                return;
            found = packet->stream_index == videoIndex_;
            ahead_.push_back(std::move(packet));
        }
    }

    Av<AVPacket> next() {
        Av<AVPacket> packet(av_packet_alloc());
        if (!ahead_.empty()) {
            packet = std::move(ahead_.front());
            ahead_.pop_front();
        } else if (!container_.read(*packet)) {
            return nullptr;
        }
        return packet;
    }

    void play(AVPacket& packet) {
        Track* track = packet.stream_index == videoIndex_   ? video_.get()
                       : packet.stream_index == soundIndex_ ? sound_.get()
                                                            : nullptr;
        if (track == nullptr)
            return;
        const AVRational unit = container_.stream(packet.stream_index).time_base;
        if (packet.pts == AV_NOPTS_VALUE)
            packet.pts = packet.dts;
        if (packet.dts == AV_NOPTS_VALUE)
            packet.dts = packet.pts;
        move(packet, unit);
        track->take(packet, microseconds);
    }

    // Gives the packet times of the whole playback, in microseconds, and waits for its own.
    void move(AVPacket& packet, AVRational unit) {
        const std::int64_t decoded = microsecondsOf(packet.dts, unit);
        if (first_ == AV_NOPTS_VALUE && decoded != AV_NOPTS_VALUE)
            first_ = decoded - shift_;
        const std::int64_t start = first_ == AV_NOPTS_VALUE ? 0 : first_;
        packet.dts = decoded == AV_NOPTS_VALUE ? end_ : decoded - start;
        packet.pts = packet.pts == AV_NOPTS_VALUE ? packet.dts : microsecondsOf(packet.pts, unit) - start;
        packet.duration = av_rescale_q(packet.duration, unit, microseconds);
        end_ = std::max(end_, packet.dts + packet.duration);
        // MPEG-TS may have most of a second of sound before the pictures of the same time: it must not hold them up.
        if (!paced_ || packet.stream_index != videoIndex_)
            return;
        if (!begun_)
            zero_ = Clock::now() - std::chrono::microseconds(packet.dts);
        begun_ = true;
        const auto due = zero_ + std::chrono::microseconds(packet.dts);
        const auto left = due - Clock::now();
        if (left > std::chrono::microseconds(longestHole) || left < -std::chrono::microseconds(latest))
            zero_ = Clock::now() - std::chrono::microseconds(packet.dts);
        else
            socket_.waitUntil(due);
    }

    const GatewaySocket& socket_;
    Container& container_;
    const bool paced_;
    Output output_;
    const int videoIndex_;
    const int soundIndex_;
    std::unique_ptr<Track> video_;
    std::unique_ptr<Track> sound_;
    std::deque<Av<AVPacket>> ahead_;      // read before the playback
    std::int64_t first_ = AV_NOPTS_VALUE; // what is taken off the container's times
    std::int64_t shift_ = 0;              // the time at which this round began
    std::int64_t end_ = 0;                // the time behind everything so far
    Clock::time_point zero_;              // when the time 0 was
    bool begun_ = false;
};

void checkFile(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0)
        throw InputFailure{errno == ENOENT || errno == ENOTDIR
                               ? "there is no file " + path
                               : "the file " + path + " can't be read: " + std::strerror(errno)};
    if (!S_ISREG(file.st_mode))
        throw InputFailure{path + " is not a file"};
}

} // namespace

void playFile(const GatewaySocket& socket, const Request& request) {
    checkFile(request.place);
    Container container("file:" + request.place, "file", {});
    if (const int error = container.open(); error == AVERROR(EACCES))
        throw InputFailure{"the file " + request.place + " can't be read by the decoder's user"};
    else if (error < 0)
        throw InputFailure{"the file " + request.place +
                           " is not a video that can be read: " + avError(error)};
    Playback playback(socket, container, true);
    if (!playback.hasVideo())
        throw InputFailure{"the file " + request.place + " has no video"};
    bool pictures = playback.prepare();
    for (;;) {
        pictures = pictures && playback.playThrough() > 0;
        if (!pictures)
            throw InputFailure{"the file " + request.place + " has no pictures"};
        playback.rewind();
        if (!container.rewind())
            throw InputFailure{"the file " + request.place + " can't be played from its start again"};
    }
}

void receiveSrt(const GatewaySocket& socket, const Request& request) {
    std::map<std::string, std::string> options{{"connect_timeout", "4000"},
                                               {"analyzeduration", "1000000"},
                                               {"probesize", "1000000"},
                                               {"fflags", "nobuffer"}};
    if (!request.password.empty())
        options["passphrase"] = request.password;
    Container container(request.place, "srt", options);
    if (const int error = container.open(); error < 0)
        throw InputFailure{error == AVERROR_INVALIDDATA
                               ? "what comes over SRT is not a video that can be read"
                               : "no connection over SRT, or another passphrase: " + avError(error)};
    Playback playback(socket, container, false);
    if (!playback.hasVideo())
        throw InputFailure{"the SRT stream has no video"};
    if (playback.prepare())
        playback.playThrough();
    throw InputFailure{"the SRT stream has ended"};
}

void playWeb(const GatewaySocket& socket, const Request& request) {
    const WebAccess access(request);
    Container container(access.url(), access.protocols(), access.openOptions(), access.connectionOptions());
    container.limitOpening(longestWebOpening);
    if (const std::string reason = access.whyNoAddress(); !reason.empty())
        throw InputFailure{reason};
    if (const int error = container.open(); error < 0)
        throw InputFailure{access.reasonFor(error, container.wasLate(), container.isAnswered()),
                           !container.wasLate() && WebAccess::isOtherForm(error)};
    const bool isFile = access.form() == WebForm::file && container.hasSize();
    const bool repeats = isFile || (access.form() != WebForm::session && container.hasDuration());
    // Whole segments of a playlist come at once.
    Playback playback(socket, container, repeats || access.form() == WebForm::playlist);
    if (!playback.hasVideo())
        throw InputFailure{"the stream of " + access.place() + " has no video"};
    if (!playback.prepare())
        throw InputFailure{"nothing can be read of the video of " + access.place() +
                           (isFile ? "; its server may have to offer byte ranges" : "")};
    while (playback.playThrough() > 0 && repeats) {
        playback.rewind();
        if (!container.rewind())
            throw InputFailure{"the video of " + access.place() + " can't be played from its start again"};
    }
    throw InputFailure{access.place() + " ended the stream"};
}

} // namespace input
