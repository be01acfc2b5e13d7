// Makes of a camera's RTP packets the packets that players get: renumbered, so that packets can be added and the camera
// may begin anew, with parameter sets before each key picture. Packets are kept since the last key picture.
//
// A "start" is a picture with which a player can begin: a key picture or, in streams without those, a recovery point. An
// encoder may have neither (it refreshes a part of each picture and does not say so); after some seconds without a start
// that a player could begin with, each picture counts as one. The player's picture then becomes whole while it plays.
//
// No picture waits here. What comes before a picture (parameter sets, messages) waits for its first packet, which
// decides whether it is a start. For one thread.
#pragma once

#include "appliance/streams/rtp/kept_packets.h"
#include "appliance/streams/rtp/parameter_sets.h"
#include "appliance/streams/rtp/payload_kind.h"
#include "appliance/streams/rtp/picture_size.h"
#include "appliance/streams/rtp/rtp_packet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace streams {

struct VideoForm {
    std::string encodingName;
    int payloadType = 96;
    int clockRate = 90000;
    std::string fmtp;
    std::size_t keptBytes = 0; // the limit of what is kept
};

class VideoRelay {
public:
    // Gets each packet for the players. `start`: a player may begin with it.
    using Take = std::function<void(const Packet& packet, bool start)>;
    VideoRelay(VideoForm form, std::uint32_t source, Take take);

    // The camera begins a new session: other numbers and times follow, and nothing before the next key picture.
    void beginSession(std::int64_t now);

    // Takes a packet of the camera, in order; `now` in microseconds. Packets of other payload types are dropped.
    void add(std::string_view packet, std::int64_t now);

    const KeptPackets& kept() const { return kept_; }
    std::uint64_t pictures() const { return pictures_; }
    // Time from one start to the next, in microseconds; 0: not known yet, or each picture counts as one.
    std::int64_t keyInterval() const { return keyInterval_; }
    bool hasKeyPicture() const { return keyPictures_ > 0; }
    // Of the newest parameter sets or picture that tell it; nothing: not known.
    std::optional<PictureSize> size() const { return size_; }

private:
    // How much a picture must be for a start. It is lowered while no start comes.
    enum class Demand { keyOrRecovery, intra, any };

    void followSender(const RtpPacket& packet, std::int64_t now);
    void learn(const RtpPacket& packet, const PayloadKind& kind);
    void holdPrefix(std::string_view bytes, const RtpPacket& packet, const PayloadKind& kind);
    void dropPrefix();
    void passPrefix(bool start);
    bool isStart(const RtpPacket& packet, const PayloadKind& kind, std::int64_t now);
    void passPicture(std::string_view bytes, const RtpPacket& packet, const PayloadKind& kind, bool start);
    void countPicture(const RtpPacket& packet, bool start);
    void addBefore(const RtpPacket& packet, std::string_view payload, bool start);
    void skip(const RtpPacket& packet);
    void pass(std::string bytes, const RtpPacket& packet, bool start);

    const VideoForm form_;
    const Encoding encoding_;
    const std::uint32_t source_;
    Take take_;
    KeptPackets kept_;
    ParameterSets sets_;

    bool known_ = false;  // a packet of this session has come
    bool waiting_ = true; // for the session's first key picture
    std::uint32_t sender_ = 0;
    std::uint16_t sequenceShift_ = 0; // what is added to the camera's numbers
    std::uint32_t timeShift_ = 0;
    std::uint16_t lastSequence_ = 0; // as sent
    std::uint32_t lastTime_ = 0;     // as sent
    std::int64_t lastAt_ = 0;        // when it was sent, in microseconds; 0: never

    std::vector<std::string> prefix_; // packets before the next picture
    std::uint32_t prefixTime_ = 0;    // of all of them
    bool prefixHasSets_ = false;
    bool prefixRecovers_ = false;

    Demand demand_ = Demand::keyOrRecovery;
    std::int64_t startAt_ =
        0; // of the last start that met the whole demand, or of the session's begin; microseconds

    std::optional<PictureSize> size_;
    bool hasKeyTime_ = false; // the key picture with this time has begun
    std::uint32_t keyTime_ = 0;
    std::uint32_t pictureTime_ = 0;
    std::uint64_t pictures_ = 0;
    std::uint64_t keyPictures_ = 0;
    std::int64_t keyInterval_ = 0;
};

} // namespace streams
