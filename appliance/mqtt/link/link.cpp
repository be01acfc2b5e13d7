#include "appliance/mqtt/link/link.h"

#include "appliance/mqtt/link/tls_files.h"

#include <libcommon/clock.h>

#include <cerrno>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <tuple>
#include <utility>

namespace mqtt {
namespace {

constexpr int keepAlive = 60; // seconds
constexpr int quality = 1;
constexpr const char* systemAuthorities = "/etc/ssl/certs";

// The library is initialised once for the process, and never ended.
void startLibrary() {
    static const int started = mosquitto_lib_init();
    static_cast<void>(started);
}

// A key with a passphrase can't be used: nobody is there to type it.
int noPassphrase(char* /*buffer*/, int /*size*/, int /*writes*/, void* /*data*/) {
    return 0;
}

std::string resultText(int result) {
    if (result == MOSQ_ERR_ERRNO) {
        return errno == EPROTO ? "the broker ended TLS without a reason" : std::strerror(errno);
    }
    if (result == MOSQ_ERR_EAI) {
        return "the broker's name is unknown";
    }
    return result == MOSQ_ERR_TLS
               ? "TLS failed: the broker's certificate is not accepted, or it speaks no TLS"
               : mosquitto_strerror(result);
}

std::string refusalText(int code, bool version5) {
    if (version5 ? code == MQTT_RC_BAD_USERNAME_OR_PASSWORD || code == MQTT_RC_NOT_AUTHORIZED
                 : code == CONNACK_REFUSED_BAD_USERNAME_PASSWORD || code == CONNACK_REFUSED_NOT_AUTHORIZED) {
        return "the broker refused the user name or password";
    }
    return std::string("the broker refused the connection: ") +
           (version5 ? mosquitto_reason_string(code) : mosquitto_connack_string(code));
}

// Properties of one packet; the library copies them.
class Properties {
public:
    Properties() = default;
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;
    ~Properties() { mosquitto_property_free_all(&list_); }

    void expiry(int seconds) {
        mosquitto_property_add_int32(&list_, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                     static_cast<std::uint32_t>(seconds));
    }
    void subscription(int number) {
        mosquitto_property_add_varint(&list_, MQTT_PROP_SUBSCRIPTION_IDENTIFIER,
                                      static_cast<std::uint32_t>(number));
    }
    const mosquitto_property* list() const { return list_; }

private:
    mosquitto_property* list_ = nullptr;
};

} // namespace

// The library calls these from serve() and start(). No exception may leave them.
struct Link::Callbacks {
    static void connected(mosquitto* /*client*/, void* object, int code, int /*flags*/,
                          const mosquitto_property* /*properties*/) noexcept {
        Link& link = *static_cast<Link*>(object);
        if (code == 0) {
            link.state_ = State::Connected;
            return;
        }
        const bool five = link.settings_.version5;
        link.handshaken_ = false; // the broker has accepted the certificate, and has other reasons
        link.needsOlderVersion_ = five && (code == MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION ||
                                           code == CONNACK_REFUSED_PROTOCOL_VERSION);
        link.lose(refusalText(code, five));
    }

    static void disconnected(mosquitto* /*client*/, void* object, int code,
                             const mosquitto_property* /*properties*/) noexcept {
        Link& link = *static_cast<Link*>(object);
        const bool told = code >= MQTT_RC_UNSPECIFIED; // a reason of MQTT 5; smaller ones are the library's
        if (told && link.settings_.version5) {
            link.lose(std::string("the broker ended the connection: ") + mosquitto_reason_string(code));
        } else if (link.state_ == State::Connecting) {
            link.lose(link.failedAttempt(code));
        } else {
            link.lose("the connection to the broker was lost");
        }
    }

    static void said(mosquitto* /*client*/, void* object, int level, const char* line) noexcept {
        if (level != MOSQ_LOG_ERR) {
            return;
        }
        try {
            static_cast<Link*>(object)->tlsFailure_.note(line);
        } catch (const std::exception& /*no memory*/) {
            // Without it the reason has fewer words.
        }
    }

    static void published(mosquitto* /*client*/, void* object, int /*number*/, int /*code*/,
                          const mosquitto_property* /*properties*/) noexcept {
        Link& link = *static_cast<Link*>(object);
        link.unconfirmed_ -= link.unconfirmed_ > 0 ? 1 : 0;
    }

    static void arrived(mosquitto* /*client*/, void* object, const mosquitto_message* arrived,
                        const mosquitto_property* properties) noexcept {
        Link& link = *static_cast<Link*>(object);
        try {
            Message message{
                .topic = arrived->topic, .payload = "", .retained = arrived->retain, .subscription = {}};
            message.payload.assign(static_cast<const char*>(arrived->payload),
                                   static_cast<std::size_t>(arrived->payloadlen));
            std::uint32_t number = 0;
            if (mosquitto_property_read_varint(properties, MQTT_PROP_SUBSCRIPTION_IDENTIFIER, &number,
                                               false) != nullptr) {
                message.subscription = static_cast<int>(number);
            }
            link.messages_.push_back(std::move(message));
        } catch (const std::exception& /*no memory*/) {
            link.lose("a message was too large");
        }
    }
};

bool LinkSettings::operator==(const LinkSettings& other) const {
    const auto values = [](const LinkSettings& settings) {
        return std::tie(settings.user, settings.password, settings.caFile, settings.certFile,
                        settings.keyFile, settings.clientId, settings.willTopic, settings.version5);
    };
    return broker.text() == other.broker.text() && values(*this) == values(other);
}

void Link::Deleter::operator()(mosquitto* client) const {
    mosquitto_destroy(client);
}

Link::Link(const LinkSettings& settings) : settings_(settings) {
    startLibrary();
}

Link::~Link() = default;

void Link::start() {
    started_ = gettimeusec();
    if (!prepare() || !prepareTls()) {
        return;
    }
    errno = 0;
    // The attempt must not wait for an answer. It works without the library's own thread, too, although its manual says
    // otherwise: what it starts is carried on by reading and writing.
    check(mosquitto_connect_async(client_.get(), settings_.broker.host.c_str(), settings_.broker.port,
                                  keepAlive),
          "no connection to the broker");
}

bool Link::prepare() {
    const char* name = settings_.clientId.empty() ? nullptr : settings_.clientId.c_str();
    client_.reset(mosquitto_new(name, true, this));
    if (client_ == nullptr) {
        lose("no memory for a connection");
        return false;
    }
    mosquitto* client = client_.get();
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION,
                         settings_.version5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(client, &Callbacks::connected);
    mosquitto_disconnect_v5_callback_set(client, &Callbacks::disconnected);
    mosquitto_publish_v5_callback_set(client, &Callbacks::published);
    mosquitto_message_v5_callback_set(client, &Callbacks::arrived);
    mosquitto_log_callback_set(client, &Callbacks::said);
    if (!settings_.user.empty() &&
        !check(mosquitto_username_pw_set(client, settings_.user.c_str(),
                                         settings_.password.empty() ? nullptr : settings_.password.c_str()),
               "the user name or password can't be sent")) {
        return false;
    }
    constexpr const char* lost = "offline";
    return settings_.willTopic.empty() ||
           check(mosquitto_will_set(client, settings_.willTopic.c_str(), static_cast<int>(std::strlen(lost)),
                                    lost, quality, true),
                 "the broker can't be told what to say when the connection is lost");
}

bool Link::prepareTls() {
    if (!settings_.broker.tls) {
        return true;
    }
    if (const std::string mistake =
            tlsFilesMistake({settings_.caFile, settings_.certFile, settings_.keyFile});
        !mistake.empty()) {
        lose(mistake);
        return false;
    }
    const bool own = !settings_.caFile.empty();
    const bool certificate = !settings_.certFile.empty();
    return check(mosquitto_tls_set(client_.get(), own ? settings_.caFile.c_str() : nullptr,
                                   own ? nullptr : systemAuthorities,
                                   certificate ? settings_.certFile.c_str() : nullptr,
                                   certificate ? settings_.keyFile.c_str() : nullptr, noPassphrase),
                 "TLS can't be set up");
}

int Link::socket() const {
    return client_ == nullptr || state_ == State::Lost ? -1 : mosquitto_socket(client_.get());
}

short Link::events() const {
    return static_cast<short>(POLLIN |
                              (client_ != nullptr && mosquitto_want_write(client_.get()) ? POLLOUT : 0));
}

void Link::serve(short revents) {
    noteHandshake();
    const bool hungUp = (revents & (POLLERR | POLLHUP)) != 0;
    // An alert of TLS that has arrived says more than the error of the socket.
    const int failure = hungUp && state_ == State::Connecting && !hasInput() ? socketError() : 0;
    errno = failure;
    if (failure != 0) {
        lose(failedAttempt(MOSQ_ERR_ERRNO));
    }
    if (state_ != State::Lost && (revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
        check(mosquitto_loop_read(client_.get(), 1), "");
    }
    if (state_ != State::Lost && (revents & POLLOUT) != 0) {
        check(mosquitto_loop_write(client_.get(), 1), "");
    }
    if (state_ != State::Lost) {
        check(mosquitto_loop_misc(client_.get()), "");
    }
    // During the start of TLS the library does not notice it.
    if (state_ == State::Connecting && hungUp) {
        lose("no connection to the broker: it was refused, or closed at once");
    }
    if (state_ == State::Connecting && gettimeusec() - started_ >= attemptLimit * std::int64_t{1000}) {
        lose("the broker did not answer in time");
    }
}

void Link::noteHandshake() {
    const auto* tls = static_cast<const SSL*>(mosquitto_ssl_get(client_.get()));
    handshaken_ = handshaken_ || (tls != nullptr && SSL_is_init_finished(tls) == 1);
}

bool Link::hasInput() const {
    int bytes = 0;
    return ioctl(mosquitto_socket(client_.get()), FIONREAD, &bytes) == 0 && bytes > 0;
}

int Link::socketError() const {
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(mosquitto_socket(client_.get()), SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error
                                                                                                   : errno;
}

std::vector<Message> Link::takeMessages() {
    return std::exchange(messages_, {});
}

void Link::publish(const std::string& topic, const std::string& payload, bool retain, int expirySeconds) {
    if (state_ != State::Connected) {
        return;
    }
    Properties properties;
    if (expirySeconds > 0 && settings_.version5) {
        properties.expiry(expirySeconds);
    }
    ++unconfirmed_;
    check(mosquitto_publish_v5(client_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                               payload.data(), quality, retain, properties.list()),
          "a message can't be sent");
}

void Link::subscribe(const std::string& filter, int number, Old old) {
    if (state_ != State::Connected) {
        return;
    }
    Properties properties;
    if (settings_.version5) {
        properties.subscription(number);
    }
    int options = 0;
    if (settings_.version5 && old != Old::Sent) {
        options =
            MQTT_SUB_OPT_SEND_RETAIN_NEVER | (old == Old::Marked ? MQTT_SUB_OPT_RETAIN_AS_PUBLISHED : 0);
    }
    check(mosquitto_subscribe_v5(client_.get(), nullptr, filter.c_str(), quality, options, properties.list()),
          "a subscription can't be sent");
}

void Link::end() {
    if (state_ == State::Connected) {
        mosquitto_disconnect(client_.get());
    }
    state_ = State::Lost;
}

// Why the attempt has failed; `result` is the library's, with errno. A broker without TLS ends the connection when it reads
// the start of TLS. Whether that is seen as an end or as a reset is chance.
std::string Link::failedAttempt(int result) const {
    if (result == MOSQ_ERR_ERRNO && errno == ECONNRESET && settings_.broker.tls && !handshaken_) {
        return "the broker closed the connection; does it speak TLS on this port?";
    }
    return "no connection to the broker: " + resultText(result);
}

void Link::lose(const std::string& reason) {
    if (state_ == State::Lost) {
        return;
    }
    const bool connecting = state_ == State::Connecting;
    const std::string ofTls = connecting ? tlsFailure_.text(settings_.certFile) : "";
    state_ = State::Lost;
    reason_ = ofTls.empty() ? reason + (connecting && handshaken_ ? certificateHint(settings_.certFile) : "")
                            : ofTls;
}

bool Link::check(int result, const char* what) {
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_PENDING) {
        return true;
    }
    const std::string text = resultText(result);
    lose(*what == '\0' ? text : std::string(what) + ": " + text);
    return false;
}

} // namespace mqtt
