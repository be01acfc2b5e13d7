// One RTSP connection: what this encoder adds to the library's handling of it, which is credentials, switched
// off transports, faults and the record of requests. Everything in here runs on the thread that serves the
// connection.
#pragma once

#include "appliance/encoder/connection.h"
#include "appliance/encoder/device.h"

#include <atomic>
#include <cstdint>
#include <gst/rtsp-server/rtsp-server.h>
#include <memory>
#include <set>
#include <vector>

class RtspChannel;

class RtspConnection {
public:
    // All must outlive it. `channels` by their numbers.
    RtspConnection(Device& device, const std::vector<std::unique_ptr<RtspChannel>>& channels,
                   Connection& connection, std::uint64_t number, bool tunnelled)
        : device_(device), channels_(channels), connection_(connection), number_(number),
          tunnelled_(tunnelled) {}
    // After the client has gone.
    ~RtspConnection();
    RtspConnection(const RtspConnection&) = delete;
    RtspConnection& operator=(const RtspConnection&) = delete;

    // From now on the channel stays ready. False when it has no pictures.
    bool join(int channel);

    // The library's half of the connection; the caller's. Its requests and answers pass through here.
    GstRTSPClient* makeClient();

    // Judges requests before the library does. One for all connections; the caller's.
    static GstRTSPAuth* makeJudge(const Options& options);

    // Breaks the connection if its client has played that channel. Any thread.
    void cutIfPlaying(int channel);

private:
    static RtspConnection& of(GstRTSPClient* client);
    static gboolean onCheck(GstRTSPAuth* judge, GstRTSPContext* context, const gchar* what);
    static gboolean onTransport(GstRTSPClient* client, GstRTSPContext* context, GstRTSPTransport* transport);
    static void onAnswer(GstRTSPClient* client, GstRTSPContext* context, GstRTSPMessage* answer,
                         gpointer connection);
    static void onPlay(GstRTSPClient* client, GstRTSPContext* context, gpointer connection);

    GstRTSPStatusCode statusOf(GstRTSPAuth* judge, GstRTSPContext* context, const FaultSet& faults);
    bool admits(GstRTSPAuth* judge, GstRTSPContext* context);
    bool isKnown(GstRTSPAuth* judge, GstRTSPContext* context) const;
    bool allows(const GstRTSPTransport& transport) const;
    bool chooseTransport(GstRTSPMessage* request) const;
    void misbehave(GstRTSPMessage* answer, const FaultSet& faults);
    void record(GstRTSPMessage* request, int status);

    Device& device_;
    const std::vector<std::unique_ptr<RtspChannel>>& channels_;
    Connection& connection_;
    const std::uint64_t number_;
    const bool tunnelled_;
    std::int64_t requestTime_ = 0; // of the request that is being served; 0: none is
    int answers_ = 0;
    std::set<int> joined_;
    std::atomic<int> channel_ = -1; // that is played
};
