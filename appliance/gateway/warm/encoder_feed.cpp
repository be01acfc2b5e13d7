#include "appliance/gateway/warm/encoder_feed.h"

#include "appliance/gateway/cameras/playable.h"
#include "appliance/gateway/warm/mpeg2_pieces.h"
#include "appliance/gateway/warm/packet_marks.h"
#include "appliance/streams/datagrams.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/jpeg_check.h"
#include "appliance/streams/multipart.h"
#include "appliance/streams/rtp_payload.h"
#include "appliance/streams/rtsp_stream.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr int answerMs = 5000;
constexpr int groupPollMs = 500;

// The number of reception threads that run. Never destroyed: threads may use it while the process exits.
struct Running {
    std::mutex lock;
    std::condition_variable changed;
    int count = 0; // guarded by lock
    void add(int change) {
        const std::lock_guard guard(lock);
        count += change;
        changed.notify_all();
    }
};
Running& running() {
    static Running& one = *new Running;
    return one;
}

streams::RtspSource rtspSourceOf(const DetectedStream& stream) {
    streams::RtspSource source;
    source.host = stream.address.host;
    source.port = stream.address.port;
    source.path = stream.address.target;
    source.transport = stream.address.transport;
    source.tls = stream.address.tls;
    source.user = stream.user;
    source.password = stream.password;
    source.answerMs = answerMs;
    return source;
}

streams::HttpSource httpSourceOf(const DetectedStream& stream) {
    streams::HttpSource source;
    source.host = stream.address.host;
    source.port = stream.address.port;
    source.https = stream.address.tls;
    source.user = stream.user;
    source.password = stream.password;
    source.target = stream.address.target;
    source.connectMs = answerMs;
    return source;
}

} // namespace

class EncoderFeed::Reception : public std::enable_shared_from_this<Reception> {
public:
    Reception(EventLoop& loop, DetectedStream stream, FeedEvents events)
        : stream_(std::move(stream)), loop_(&loop), events_(std::move(events)) {}

    void start() {
        running().add(1);
        std::thread([self = shared_from_this()]() mutable {
            self->run();
            self.reset();
            running().add(-1);
        }).detach();
    }

    // The loop's thread.
    void end() {
        wanted_ = false;
        const std::lock_guard guard(lock_);
        loop_ = nullptr;
        if (session_ != nullptr)
            session_->endSoon();
    }

private:
    void run() {
        std::string reason;
        switch (stream_.address.kind) {
        case streams::StreamAddress::Kind::mjpeg:
            reason = receivePictures();
            break;
        case streams::StreamAddress::Kind::mpeg2:
            reason = receiveBytes();
            break;
        case streams::StreamAddress::Kind::group:
            reason = receiveGroup();
            break;
        case streams::StreamAddress::Kind::rtsp:
            reason = receiveRtsp();
            break;
        }
        post([&](Waiting& waiting) { waiting.reason = std::move(reason); });
    }

    std::string receivePictures() {
        std::unique_ptr<streams::MultipartReader> reader;
        const auto take = [this](std::string_view part) {
            if (!streams::wholeJpeg(part))
                return;
            begin({.form = streams::KeptDescription::Form::pictures,
                   .ordered = true,
                   .video = {},
                   .sound = {}});
            add({.kind = streams::KeptFrame::picture,
                 .bytes = std::make_shared<const std::string>(part),
                 .unit = ++pictures_,
                 .newPicture = true,
                 .key = true,
                 .before = nullptr});
        };
        return receiveHttp(
            [&](const std::string& type) { reader = std::make_unique<streams::MultipartReader>(type, take); },
            [&](const char* bytes, std::size_t count) { reader->feed(bytes, count); });
    }

    std::string receiveBytes() {
        Mpeg2Pieces pieces([this](const KeptItem& item) { add(item); });
        return receiveHttp(
            [this](const std::string& /*type*/) {
                begin({.form = streams::KeptDescription::Form::bytes,
                       .ordered = true,
                       .video = {},
                       .sound = {}});
            },
            [&](const char* bytes, std::size_t count) {
                pieces.feed({bytes, count});
            });
    }

    template<class Begin, class Body>
    std::string receiveHttp(const Begin& beginBody, const Body& body) {
        const streams::HttpTaker taker{.begin =
                                           [&](const std::string& type) {
                                               beginBody(type);
                                               return wanted_.load();
                                           },
                                       .body =
                                           [&](const char* bytes, std::size_t count) {
                                               body(bytes, count);
                                               return wanted_.load();
                                           },
                                       .wanted = [this] { return wanted_.load(); }};
        return streams::receiveHttp(httpSourceOf(stream_), taker);
    }

    // The group has no description: the first packet tells its encoding.
    std::string receiveGroup() {
        const int socket = streams::joinGroup(stream_.address.host, stream_.address.port);
        if (socket < 0)
            return "the group can't be received";
        bool good = true;
        while (good && wanted_) {
            pollfd readable{socket, POLLIN, 0};
            poll(&readable, 1, groupPollMs);
            good = streams::receiveWaiting(socket, "",
                                           [this](std::string_view packet) { addGroupPacket(packet); });
        }
        close(socket);
        return "the socket broke";
    }

    void addGroupPacket(std::string_view packet) {
        if (marks_ == nullptr) {
            streams::DescribedStream video;
            video.caps = streams::capsOfPacket(packet);
            video.encodingName = streams::encodingNameIn(video.caps);
            if (!PacketMarks::knows(video.encodingName))
                return;
            marks_ = std::make_unique<PacketMarks>(video.encodingName);
            begin({.form = streams::KeptDescription::Form::packets,
                   .ordered = false,
                   .video = video,
                   .sound = {}});
        }
        add(marks_->mark(packet));
    }

    std::string receiveRtsp() {
        streams::KeptDescription description;
        const streams::RtspReceiver receiver{
            .usesVideo = &PacketMarks::knows,
            .usesSound = &isPlayableSound,
            .beginVideo =
                [&](const streams::DescribedStream& video, bool ordered) {
                    description.video = video;
                    description.ordered = ordered;
                    marks_ = std::make_unique<PacketMarks>(video.encodingName);
                    return std::string();
                },
            .beginSound = [&](const streams::DescribedStream& sound) { description.sound = sound; },
            .noSound = [](const std::string& /*reason*/) {},
            .video =
                [&](std::string_view packet) {
                    begin(description);
                    add(marks_->mark(packet));
                    return true;
                },
            .sound =
                [&](std::string_view packet) {
                    begin(description);
                    add({.kind = streams::KeptFrame::sound,
                         .bytes = std::make_shared<const std::string>(packet),
                         .unit = 0,
                         .newPicture = false,
                         .key = false,
                         .before = nullptr});
                }};
        streams::RtspStream session(rtspSourceOf(stream_), receiver);
        if (!hold(&session))
            return "";
        std::string reason = session.run();
        hold(nullptr);
        return reason;
    }

    // False when the feed has ended before the session.
    bool hold(streams::RtspStream* session) {
        const std::lock_guard guard(lock_);
        session_ = session;
        return loop_ != nullptr;
    }

    void begin(const streams::KeptDescription& description) {
        if (!std::exchange(begun_, true))
            post([&](Waiting& waiting) { waiting.description = description; });
    }
    void add(const KeptItem& item) {
        post([&](Waiting& waiting) { waiting.items.push_back(item); });
    }

    // What waits for the loop's thread.
    struct Waiting {
        std::optional<streams::KeptDescription> description;
        std::vector<KeptItem> items;
        std::optional<std::string> reason;
    };

    // One call of the loop takes all that has come until then.
    template<class Add>
    void post(const Add& addTo) {
        const std::lock_guard guard(lock_);
        addTo(waiting_);
        if (loop_ != nullptr && !std::exchange(posted_, true))
            loop_->later([self = shared_from_this()] { self->handOver(); });
    }

    void handOver() {
        Waiting taken;
        {
            const std::lock_guard guard(lock_);
            taken = std::exchange(waiting_, {});
            posted_ = false;
            if (loop_ == nullptr)
                return;
        }
        if (taken.description)
            events_.opened(*taken.description);
        for (const KeptItem& item : taken.items)
            events_.item(item, false);
        events_.pause();
        if (taken.reason)
            events_.ended(*taken.reason);
    }

    const DetectedStream stream_;
    std::atomic<bool> wanted_{true};
    // Of the reception's thread.
    std::unique_ptr<PacketMarks> marks_;
    std::uint64_t pictures_ = 0;
    bool begun_ = false;

    std::mutex lock_;
    EventLoop* loop_;                        // null: the feed has ended; guarded by lock_
    streams::RtspStream* session_ = nullptr; // guarded by lock_
    Waiting waiting_;                        // guarded by lock_
    bool posted_ = false;                    // guarded by lock_
    FeedEvents events_;                      // of the loop's thread
};

EncoderFeed::EncoderFeed(EventLoop& loop, const DetectedStream& stream, FeedEvents events)
    : reception_(std::make_shared<Reception>(loop, stream, std::move(events))) {
    reception_->start();
}

EncoderFeed::~EncoderFeed() {
    reception_->end();
}

void EncoderFeed::awaitEnds(std::chrono::milliseconds limit) {
    std::unique_lock guard(running().lock);
    running().changed.wait_for(guard, limit, [] { return running().count == 0; });
}

} // namespace gateway
