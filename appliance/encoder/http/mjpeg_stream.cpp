#include "appliance/encoder/http/mjpeg_stream.h"

#include "appliance/encoder/faults/frame_gate.h"
#include "appliance/encoder/http/wanted_channel.h"
#include "appliance/serving/text.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::chrono::seconds firstPictureTime(5);
constexpr std::chrono::seconds pictureTime(5); // for the client to take one picture
constexpr std::chrono::milliseconds watchTime(250);
constexpr std::string_view boundary = "video-encoder-picture";

struct Wanted {
    Channel* channel = nullptr;
    JpegForm form{};
    int fps = 0; // 0: every picture of the source
    std::string mistake;
};

struct NamedSize {
    std::string_view name;
    int width;
    int height;
};
constexpr std::array<NamedSize, 5> namedSizes{
    {{"QCIF", 176, 144}, {"CIF", 352, 288}, {"2CIF", 704, 288}, {"4CIF", 704, 576}, {"D1", 720, 576}}};

bool readResolution(const std::string& text, JpegForm& form) {
    for (const NamedSize& size : namedSizes) {
        if (equalIgnoringCase(text, size.name)) {
            form.width = size.width;
            form.height = size.height;
            return true;
        }
    }
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

std::string valueOf(std::string_view query, std::string_view name) {
    return queryField(query, name).value_or("");
}

Wanted wantedBy(const HttpSession& session) {
    const std::string_view query = session.request().query();
    Wanted wanted;
    wanted.channel = wantedChannel(session);
    if (wanted.channel == nullptr)
        return wanted;
    wanted.form = {wanted.channel->width, wanted.channel->height, session.device().options.quality};
    if (const std::string text = valueOf(query, "resolution");
        !text.empty() && !readResolution(text, wanted.form))
        wanted.mistake =
            "resolution is WIDTHxHEIGHT, from 64x48 to 1920x1080, or QCIF, CIF, 2CIF, 4CIF or D1\n";
    if (const std::string text = valueOf(query, "compression"); !text.empty()) {
        const auto compression = wholeNumber(text);
        if (!compression || *compression > 100)
            wanted.mistake = "compression is a number from 0 to 100\n";
        else
            wanted.form.quality = 95 - *compression * 85 / 100;
    }
    if (const std::string text = valueOf(query, "fps"); !text.empty()) {
        wanted.fps = wholeNumber(text).value_or(0);
        if (wanted.fps < 1 || wanted.fps > 60)
            wanted.mistake = "fps is a number from 1 to 60\n";
    }
    return wanted;
}

// Replies to a query that cannot be served; false if it can.
bool refused(HttpSession& session, const Wanted& wanted) {
    if (wanted.channel == nullptr)
        replyNoSuchCamera(session);
    else if (!wanted.mistake.empty())
        session.reply({400, "text/plain", wanted.mistake, {}});
    else
        return false;
    return true;
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
    bool send(const JpegPtr& jpeg, const std::string& head); // the head goes with the first picture
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

// Sends the reply's head together with the first picture.
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

bool MjpegStream::send(const JpegPtr& jpeg, const std::string& head) {
    if (!jpeg)
        return false;
    last_ = jpeg;
    if (!session_.connection().write({head + partHead(*jpeg), *jpeg, "\r\n"}, in(pictureTime)))
        return false;
    gate_.sent();
    return true;
}

} // namespace

void streamMjpeg(HttpSession& session) {
    const Wanted wanted = wantedBy(session);
    if (!refused(session, wanted))
        MjpegStream(session, wanted).run();
}

void sendStill(HttpSession& session) {
    const Wanted wanted = wantedBy(session);
    if (refused(session, wanted))
        return;
    const PicturePtr picture = Subscription(*wanted.channel->source).next(firstPictureTime);
    const JpegPtr jpeg = picture ? wanted.channel->jpegs.jpegOf(picture, wanted.form) : nullptr;
    if (jpeg)
        session.reply({200, "image/jpeg", *jpeg, "Cache-Control: no-cache\r\n"});
    else
        session.reply({503, "text/plain", "there is no picture\n", {}});
}
