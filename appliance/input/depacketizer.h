// Puts the pictures of a camera together from RTP packets in the codecs that players can't decode: VP8 (RFC 7741), VP9
// (RFC 9628) and AV1 (the Alliance's RTP format). For one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace input {

class Depacketizer {
public:
    // Gets each complete picture. `time`: its RTP timestamp, continued beyond 32 bits.
    using Take = std::function<void(std::string_view picture, std::int64_t time)>;

    // Null for a codec that is not known.
    static std::unique_ptr<Depacketizer> make(std::string_view codec, Take take);
    virtual ~Depacketizer() = default;

    // Takes a packet, in order. A picture with a missing packet is left out. Bytes that are not RTP are ignored.
    void add(std::string_view packet);

protected:
    explicit Depacketizer(Take take) : take_(std::move(take)) {}

private:
    // Appends what a payload brings. False: it can't be used.
    virtual bool unpack(std::string_view payload, std::string& picture) = 0;
    virtual bool begins(std::string_view payload) const = 0;
    virtual void reset() {}
    virtual void complete(std::string& /*picture*/) {}

    std::int64_t timeOf(std::uint32_t stamp);
    void begin(std::uint32_t stamp);

    Take take_;
    std::string picture_;
    bool good_ = false;    // picture_ has everything since the picture's begin
    bool started_ = false; // a packet has come
    std::uint16_t sequence_ = 0;
    std::uint32_t stamp_ = 0;
    std::int64_t time_ = 0;
};

} // namespace input
