#include "appliance/encoder/mjpeg_stream.h"

#include "appliance/encoder/frame_gate.h"
#include "appliance/encoder/streams.h"

#include <algorithm>

namespace {

constexpr std::chrono::seconds firstPictureTime(5);
constexpr std::chrono::seconds pictureTime(5); // for a client to take one picture; a slower one is dropped
constexpr std::chrono::milliseconds watchTime(250);
constexpr std::string_view boundary = "video-encoder-picture";

struct Wanted {
    Channel* channel = nullptr;
    JpegForm form{};
    int fps = 0; // 0: as they come
    std::string mistake;
    int status = 400;
};

bool readResolution(const std::string& text, JpegForm& form) {
    const std::size_t x = text.find('x');
    const auto width = wholeNumber(std::string_view(text).substr(0, x));
    const auto height =
        x == std::string::npos ? std::nullopt : wholeNumber(std::string_view(text).substr(x + 1));
    if (!width || !height || *width < 64 || *width > 1920 || *height < 48 || *height > 1080)
        return false;
    form.width = *width;
    form.height = *height;
    return true;
}

Wanted wantedBy(const HttpSession& session) {
    const std::string_view query = session.request().query();
    Wanted wanted;
    wanted.channel = wantedChannel(session);
    if (wanted.channel == nullptr) {
        wanted.mistake = "there is no such camera\n";
        wanted.status = 404;
        return wanted;
    }
    wanted.form = {wanted.channel->width, wanted.channel->height, session.device().options.quality};
    if (const auto text = queryField(query, "resolution"); text && !readResolution(*text, wanted.form))
        wanted.mistake = "resolution is WIDTHxHEIGHT, from 64x48 to 1920x1080\n";
    if (const auto text = queryField(query, "compression")) {
        const auto compression = wholeNumber(*text);
        if (!compression || *compression > 100)
            wanted.mistake = "compression is a number from 0 to 100\n";
        else
            wanted.form.quality = 95 - *compression * 85 / 100;
    }
    if (const auto text = queryField(query, "fps")) {
        wanted.fps = wholeNumber(*text).value_or(0);
        if (wanted.fps < 1 || wanted.fps > 60)
            wanted.mistake = "fps is a number from 1 to 60\n";
    }
    return wanted;
}

std::string partHead(const std::string& jpeg) {
    return "--" + std::string(boundary) +
           "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
}

// One client's stream.
class MjpegStream {
public:
    MjpegStream(HttpSession& session, const Wanted& wanted)
        : session_(session), wanted_(wanted), pictures_(*wanted.channel->source) {}

    void run();

private:
    bool begin();
    bool step();
    bool sendNewer();
    bool send(const JpegPtr& jpeg, const std::string& before);
    bool gone() const { return session_.device().stopping() || session_.connection().peerHasLeft(); }

    HttpSession& session_;
    const Wanted& wanted_;
    Subscription pictures_;
    FrameGate gate_;
    JpegPtr last_;
    Deadline nextTime_ = in({});
};

void MjpegStream::run() {
    if (!begin())
        return;
    while (!gone() && step()) {
    }
}

// The answer's head leaves together with the first picture.
bool MjpegStream::begin() {
    PicturePtr first = pictures_.next(firstPictureTime);
    if (!first) {
        session_.reply({503, "text/plain", "there is no picture\n", {}});
        return false;
    }
    session_.beginStream(200);
    const std::string head = "HTTP/1.1 200 OK\r\nServer: video-encoder\r\nCache-Control: no-cache\r\n"
                             "Content-Type: multipart/x-mixed-replace;boundary=" +
                             std::string(boundary) + "\r\nConnection: close\r\n\r\n";
    if (session_.request().method == "HEAD") {
        session_.connection().write({head}, in(pictureTime));
        return false;
    }
    const FrameGate::Step fault = gate_.next(session_.device().faults.current());
    if (fault == FrameGate::Step::Cut || fault == FrameGate::Step::Hold)
        return session_.connection().write({head}, in(pictureTime));
    return send(wanted_.channel->jpegs.jpegOf(first, wanted_.form), head);
}

bool MjpegStream::step() {
    switch (gate_.next(session_.device().faults.current())) {
    case FrameGate::Step::Cut:
        session_.connection().abortOnClose();
        return false;
    case FrameGate::Step::Hold:
        session_.connection().sleepUntil(in(watchTime));
        return true;
    case FrameGate::Step::Repeat:
        session_.connection().sleepUntil(
            in(std::chrono::milliseconds(1000 / wanted_.channel->source->fps())));
        return last_ == nullptr ? sendNewer() : send(last_, {});
    case FrameGate::Step::Send:
        return sendNewer();
    }
    return false;
}

bool MjpegStream::sendNewer() {
    if (wanted_.fps > 0) {
        nextTime_ = std::max(nextTime_ + std::chrono::milliseconds(1000 / wanted_.fps), in({}));
        session_.connection().sleepUntil(nextTime_);
    }
    const PicturePtr picture = pictures_.next(watchTime);
    return picture == nullptr || send(wanted_.channel->jpegs.jpegOf(picture, wanted_.form), {});
}

bool MjpegStream::send(const JpegPtr& jpeg, const std::string& before) {
    if (!jpeg)
        return false;
    last_ = jpeg;
    if (!session_.connection().write({before + partHead(*jpeg), *jpeg, "\r\n"}, in(pictureTime)))
        return false;
    gate_.sent();
    return true;
}

} // namespace

void streamMjpeg(HttpSession& session) {
    const Wanted wanted = wantedBy(session);
    if (!wanted.mistake.empty())
        session.reply({wanted.status, "text/plain", wanted.mistake, {}});
    else
        MjpegStream(session, wanted).run();
}

void sendStill(HttpSession& session) {
    const Wanted wanted = wantedBy(session);
    if (!wanted.mistake.empty()) {
        session.reply({wanted.status, "text/plain", wanted.mistake, {}});
        return;
    }
    const PicturePtr picture = Subscription(*wanted.channel->source).next(firstPictureTime);
    const JpegPtr jpeg = picture ? wanted.channel->jpegs.jpegOf(picture, wanted.form) : nullptr;
    if (jpeg)
        session.reply({200, "image/jpeg", *jpeg, "Cache-Control: no-cache\r\n"});
    else
        session.reply({503, "text/plain", "there is no picture\n", {}});
}
