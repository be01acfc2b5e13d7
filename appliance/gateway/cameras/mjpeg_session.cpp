#include "appliance/gateway/cameras/mjpeg_session.h"

#include "appliance/gateway/cameras/connection.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/jpeg_check.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <strings.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t headerLimit = 64 * 1024;
constexpr curl_off_t refusalLimit = 16 * 1024;
constexpr std::size_t shownType = 80;                    // characters of a content type that a message quotes
constexpr std::size_t mostWithoutPart = 4 * 1024 * 1024; // of a body whose type does not announce parts
constexpr std::chrono::milliseconds lookTime(250);

bool isMultipart(const std::string& type) {
    constexpr std::string_view start = "multipart/";
    return type.size() > start.size() && strncasecmp(type.c_str(), start.data(), start.size()) == 0;
}

// The type of servers that do not know what they send.
bool saysNothing(const std::string& type) {
    constexpr std::string_view unknown = "application/octet-stream";
    return type.empty() || strncasecmp(type.c_str(), unknown.data(), unknown.size()) == 0;
}

input::WebForm formOf(const std::string& type, std::string_view first) {
    const input::WebForm form = input::webFormOfType(type);
    return form == input::WebForm::none ? input::webFormOfBytes(first) : form;
}

} // namespace

MjpegSession::MjpegSession(EventLoop& loop, Transfers& transfers, CameraUrl url, SessionTimes times,
                           SessionEvents events, Other other)
    : loop_(loop), transfers_(transfers), url_(std::move(url)), times_(times), events_(std::move(events)),
      other_(std::move(other)), curl_(curl_easy_init()) {}

MjpegSession::~MjpegSession() {
    loop_.cancel(silenceTimer_);
    loop_.cancel(endTimer_);
    transfers_.remove(curl_);
    curl_easy_cleanup(curl_);
}

void MjpegSession::open() {
    const streams::HttpSource source{.host = url_.host,
                                     .port = url_.port,
                                     .https = url_.usesTls(),
                                     .user = url_.user,
                                     .password = url_.password,
                                     .target = url_.target,
                                     .connectMs = static_cast<int>(times_.connect.count())};
    bool good = streams::configureRequest(curl_, source, error_.data());
    const auto set = [&](CURLoption option, auto value) {
        good = good && curl_easy_setopt(curl_, option, value) == CURLE_OK;
    };
    set(CURLOPT_HEADERFUNCTION, &MjpegSession::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &MjpegSession::onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_XFERINFOFUNCTION, &MjpegSession::onProgress);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_FORBID_REUSE, 1L);
    started_ = gettimeusec();
    if (!good)
        return endSoon({Fault::noConnection, "the request to " + url_.place() + " can't be made"});
    transfers_.add(curl_, [this](CURLcode result) { end(outcome(result)); });
    watchSilence();
}

long MjpegSession::status() const {
    long status = 0;
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    return status;
}

std::size_t MjpegSession::onHeader(char* /*line*/, std::size_t size, std::size_t count, void* self) {
    auto& session = *static_cast<MjpegSession*>(self);
    session.headerBytes_ += size * count;
    return session.headerBytes_ > headerLimit ? 0 : size * count;
}

std::size_t MjpegSession::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& session = *static_cast<MjpegSession*>(self);
    if (session.ended_ || (session.reader_ == nullptr && !session.begin({bytes, size * count})))
        return 0;
    session.reader_->feed(bytes, size * count);
    session.bodyBytes_ += size * count;
    if (session.namesNoParts_ && !session.opened_ && session.bodyBytes_ > mostWithoutPart)
        session.endSoon(session.otherType());
    session.events_.pause();
    return session.ended_ ? 0 : size * count;
}

// libcurl reads the body of a 401 itself before it answers with credentials; an endless one is cut here.
int MjpegSession::onProgress(void* self, curl_off_t /*total*/, curl_off_t now, curl_off_t /*upTotal*/,
                             curl_off_t /*upNow*/) {
    const auto& session = *static_cast<MjpegSession*>(self);
    return session.reader_ == nullptr && now > refusalLimit && session.status() >= 400 ? 1 : 0;
}

// False when the body is no stream of pictures.
bool MjpegSession::begin(std::string_view first) {
    if (status() != 200)
        return false;
    const char* type = nullptr;
    curl_easy_getinfo(curl_, CURLINFO_CONTENT_TYPE, &type);
    type_ = type == nullptr ? "" : type;
    if (!isMultipart(type_)) {
        if (const input::WebForm form = formOf(type_, first); form != input::WebForm::none) {
            handOverSoon(form);
            return false;
        }
        namesNoParts_ = saysNothing(type_);
        if (!namesNoParts_) {
            endSoon(otherType());
            return false;
        }
    }
    reader_ = std::make_unique<streams::MultipartReader>(
        type_, [this](std::string_view part) { takePicture(part); });
    return true;
}

Failure MjpegSession::otherType() const {
    return {Fault::notUnderstood,
            url_.place() + " sends " +
                (type_.empty() ? "something without a type"
                               : "\"" + libcommon::printable(type_.substr(0, shownType)) + "\"") +
                ", not a Motion JPEG stream"};
}

void MjpegSession::takePicture(std::string_view bytes) {
    if (ended_ || !streams::wholeJpeg(bytes))
        return;
    lastPicture_ = gettimeusec();
    if (!std::exchange(opened_, true))
        events_.opened({.video = std::nullopt, .sound = std::nullopt, .transport = "HTTP"});
    events_.picture(bytes);
}

void MjpegSession::watchSilence() {
    silenceTimer_ = loop_.after(lookTime, [this] {
        if (const Failure failure = silence(gettimeusec()); !failure.none())
            return end(failure);
        watchSilence();
    });
}

Failure MjpegSession::silence(std::int64_t now) const {
    if (lastPicture_ != 0 && now - lastPicture_ > times_.silence.count() * 1000)
        return {Fault::silence, url_.place() + " has stopped sending"};
    if (lastPicture_ != 0 || now - started_ <= (times_.connect + times_.firstPacket).count() * 1000)
        return {};
    if (status() == 0)
        return {Fault::noAnswer, url_.place() + " does not answer the request"};
    if (namesNoParts_)
        return otherType();
    if (reader_ != nullptr && reader_->skipped() > 0)
        return {Fault::unsupported, "the pictures of " + url_.place() + " can't be shown"};
    return {Fault::noPackets, url_.place() + " accepts the request and sends no picture"};
}

Failure MjpegSession::outcome(CURLcode result) const {
    const std::string place = url_.place();
    if (opened_)
        return {Fault::ended, place + " ended the stream"};
    if (headerBytes_ > headerLimit)
        return {Fault::notUnderstood, place + " sends a header without an end"};
    switch (const long answered = status()) {
    case 0:
        if (result == CURLE_OK || result == CURLE_GOT_NOTHING || result == CURLE_RECV_ERROR ||
            result == CURLE_UNSUPPORTED_PROTOCOL || result == CURLE_WEIRD_SERVER_REPLY ||
            result == CURLE_WRITE_ERROR)
            return {Fault::notUnderstood, place + " does not speak HTTP"};
        return failureOf(curl_, result, url_, error_.data());
    case 200:
        if (namesNoParts_)
            return otherType();
        return {Fault::ended, place + " ended the stream before its first picture"};
    default:
        return refusalOf(answered, place, !url_.user.empty());
    }
}

// libcurl must not be called from the functions that it calls.
void MjpegSession::endSoon(const Failure& failure) {
    if (endTimer_ == 0)
        endTimer_ = loop_.after(std::chrono::milliseconds(0), [this, failure] { end(failure); });
}

void MjpegSession::handOverSoon(input::WebForm form) {
    ended_ = true;
    loop_.cancel(silenceTimer_);
    loop_.cancel(endTimer_);
    endTimer_ = loop_.after(std::chrono::milliseconds(0), [this, form] { other_(form); });
}

void MjpegSession::end(const Failure& failure) {
    if (endTimer_ != 0 && failure.fault != Fault::notUnderstood)
        return; // the better reason is on its way
    if (std::exchange(ended_, true))
        return;
    loop_.cancel(silenceTimer_);
    loop_.cancel(endTimer_);
    events_.ended(failure);
}

} // namespace gateway
