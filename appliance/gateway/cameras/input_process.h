// A running camera-input, which reads what the gateway does not read itself, or decodes what players can't decode.
//
// It is started for one session and ends with it. What it decodes can break it, and then it breaks alone. For the loop's
// thread.
#pragma once

#include "appliance/gateway/cameras/reason.h"
#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/gateway/loop/event_loop.h"
#include "appliance/input/protocol/messages.h"
#include "appliance/streams/rtsp_message.h"

#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace gateway {

class InputProcess {
public:
    // The owner must not destroy the process object in a call.
    struct Events {
        std::function<void(const StreamInfo& info)> described; // before the first packet
        std::function<void(Track track, std::string_view packet)> packet;
        std::function<void()> pause;                       // all that has arrived is handed over
        std::function<void(const Failure& failure)> ended; // once; nothing more comes
    };

    // The loop must outlive it.
    InputProcess(EventLoop& loop, Events events);
    ~InputProcess();
    InputProcess(const InputProcess&) = delete;
    InputProcess& operator=(const InputProcess&) = delete;

    // Returns none, or why it can't be started.
    Failure start(const input::Request& request);

    // A packet to be decoded. Packets that it does not take in time are dropped.
    void give(std::string_view packet);

private:
    void onReady(std::uint32_t events);
    void onMessage(int channel, std::string_view bytes);
    void describe(std::string_view text);
    void writeWaiting();
    void end(const Failure& failure);
    void stop();

    EventLoop& loop_;
    const Events events_;
    streams::RtspReader reader_; // the messages are in the form of interleaved packets
    int fd_ = -1;
    pid_t pid_ = -1;
    std::string waiting_; // to be sent
    std::string encoded_; // the codec before
    bool described_ = false;
    bool ended_ = false;
};

} // namespace gateway
