#include "appliance/panel/fleet/broker_connection.h"

#include <libcommon/clock.h>

#include <poll.h>
#include <random>
#include <utility>

namespace panel {
namespace {

constexpr std::int64_t stableAfter =
    5'000'000; // microseconds; a connection that lasted so long was a good one

std::uint32_t chance() {
    static std::random_device device;
    return device();
}

GIOCondition conditionOf(short events) {
    unsigned condition = G_IO_IN | G_IO_ERR | G_IO_HUP;
    if ((events & POLLOUT) != 0)
        condition |= G_IO_OUT;
    return static_cast<GIOCondition>(condition);
}

} // namespace

// GLib's values of the conditions are those of poll().
struct BrokerConnection::SocketSource {
    GSource source;
    BrokerConnection* owner;
    gpointer tag;

    static gboolean check(GSource* source) {
        return g_source_query_unix_fd(source, reinterpret_cast<SocketSource*>(source)->tag) != 0 ? TRUE
                                                                                                 : FALSE;
    }
    static gboolean dispatch(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
        auto* self = reinterpret_cast<SocketSource*>(source);
        self->owner->serve(static_cast<short>(g_source_query_unix_fd(source, self->tag)));
        return G_SOURCE_CONTINUE;
    }
};

BrokerConnection::~BrokerConnection() {
    BrokerConnection::end();
}

void BrokerConnection::begin(const mqtt::LinkSettings& settings, BrokerNews news) {
    end();
    settings_ = settings;
    news_ = std::move(news);
    backOff_.reset();
    attempt();
}

void BrokerConnection::end() {
    ++attempt_;
    for (SourceHandle* handle : {&socket_, &tick_, &pause_})
        handle->reset();
    if (link_ != nullptr)
        link_->end();
    link_.reset();
    told_ = false;
}

void BrokerConnection::attempt() {
    pause_.reset();
    if (starter_ == nullptr)
        starter_ = std::make_unique<Worker>(4);
    const auto link = std::make_shared<mqtt::Link>(settings_);
    const unsigned number = ++attempt_;
    const bool taken = starter_->run([link] { link->start(); },
                                     [this, link, number](const std::exception_ptr& /*failure*/) {
                                         if (number == attempt_)
                                             attach(link);
                                     });
    if (!taken)
        retry();
}

void BrokerConnection::attach(const std::shared_ptr<mqtt::Link>& link) {
    link_ = link;
    told_ = false;
    tick_ = every(mqtt::Link::betweenTicks, [this] { serve(0); });
    watchSocket();
    handOver();
}

void BrokerConnection::watchSocket() {
    const int socket = link_ == nullptr ? -1 : link_->socket();
    if (socket < 0) {
        socket_.reset();
        return;
    }
    const GIOCondition condition = conditionOf(link_->events());
    if (socket_ != nullptr) {
        g_source_modify_unix_fd(socket_.get(), socketTag_, condition);
        return;
    }
    static GSourceFuncs functions{nullptr, SocketSource::check, SocketSource::dispatch, nullptr, nullptr,
                                  nullptr};
    GSource* source = g_source_new(&functions, sizeof(SocketSource));
    auto* own = reinterpret_cast<SocketSource*>(source);
    own->owner = this;
    own->tag = socketTag_ = g_source_add_unix_fd(source, socket, condition);
    g_source_attach(source, g_main_context_get_thread_default());
    socket_.reset(source);
}

void BrokerConnection::serve(short revents) {
    if (link_ == nullptr)
        return;
    const std::shared_ptr<mqtt::Link> link = link_;
    link->serve(revents);
    handOver();
}

// Tells what is new. Whoever is told may end or begin anew.
void BrokerConnection::handOver() {
    const std::shared_ptr<mqtt::Link> link = link_;
    if (link->state() == mqtt::Link::State::Connected && !std::exchange(told_, true)) {
        connectedAt_ = gettimeusec();
        news_.connected();
    }
    for (const mqtt::Message& message : link->takeMessages()) {
        if (link == link_)
            news_.message(message);
    }
    if (link != link_)
        return;
    if (link->state() == mqtt::Link::State::Lost)
        retry();
    else
        watchSocket();
}

void BrokerConnection::retry() {
    const std::shared_ptr<mqtt::Link> lost = std::exchange(link_, nullptr);
    socket_.reset();
    tick_.reset();
    if (lost != nullptr && lost->needsOlderVersion() && std::exchange(settings_.version5, false)) {
        attempt();
        return;
    }
    if (std::exchange(told_, false) && gettimeusec() - connectedAt_ >= stableAfter)
        backOff_.reset();
    pause_ = every(static_cast<unsigned>(backOff_.next(chance()) / 1000), [this] { attempt(); });
    news_.lost(lost == nullptr ? "too many attempts at a time" : lost->reason());
}

// Sending may find that the connection is lost. That is told later: the sender is in the middle of something.
void BrokerConnection::afterSending() {
    if (link_->state() == mqtt::Link::State::Lost)
        tick_ = every(1, [this] { serve(0); });
    watchSocket();
}

void BrokerConnection::subscribe(const std::string& filter, mqtt::Link::Old old) {
    if (link_ == nullptr)
        return;
    link_->subscribe(filter, 1, old);
    afterSending();
}

void BrokerConnection::publish(const std::string& topic, const std::string& payload, int expirySeconds) {
    if (link_ == nullptr)
        return;
    link_->publish(topic, payload, false, expirySeconds);
    afterSending();
}

} // namespace panel
