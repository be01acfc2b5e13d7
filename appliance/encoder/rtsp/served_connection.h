// One RTSP connection. The library handles the protocol; this file adds credentials, transports that are switched off,
// faults, and the record of requests. All of it runs on the thread that serves the connection, except cutIfPlaying().
#pragma once

#include "appliance/encoder/device/device.h"
#include "appliance/encoder/network/connection.h"

#include <atomic>
#include <cstdint>
#include <gst/rtsp-server/rtsp-server.h>
#include <memory>
#include <set>
#include <vector>

class RtspChannel;

class ServedConnection {
public:
    // All arguments must outlive it. `channels` is indexed by channel number.
    ServedConnection(Device& device, const std::vector<std::unique_ptr<RtspChannel>>& channels,
                     Connection& connection, std::uint64_t number, bool tunnelled)
        : device_(device), channels_(channels), connection_(connection), number_(number),
          tunnelled_(tunnelled) {}
    // Only after the library's client was released.
    ~ServedConnection();
    ServedConnection(const ServedConnection&) = delete;
    ServedConnection& operator=(const ServedConnection&) = delete;

    // Keeps the channel's pipeline running until this connection ends. False if the channel has no pictures.
    bool join(int channel);

    // The library's object for this connection, with our callbacks. The caller releases it.
    GstRTSPClient* makeClient();

    // The object that the library asks before it handles a request; one for all connections. The caller releases it.
    static GstRTSPAuth* makeChecker(const Options& options);

    // Resets the connection if its client has played that channel. Any thread.
    void cutIfPlaying(int channel);

private:
    static ServedConnection& of(GstRTSPClient* client);
    static gboolean onCheck(GstRTSPAuth* checker, GstRTSPContext* context, const gchar* what);
    static gchar* pathOf(GstRTSPClient* client, const GstRTSPUrl* url);
    static GstSDPMessage* describe(GstRTSPClient* client, GstRTSPMedia* media);
    static gboolean onTransport(GstRTSPClient* client, GstRTSPContext* context, GstRTSPTransport* transport);
    static void onAnswer(GstRTSPClient* client, GstRTSPContext* context, GstRTSPMessage* answer,
                         gpointer connection);
    static void onPlay(GstRTSPClient* client, GstRTSPContext* context, gpointer connection);

    GstRTSPStatusCode statusOf(GstRTSPAuth* checker, GstRTSPContext* context, const FaultSet& faults);
    bool admits(GstRTSPAuth* checker, GstRTSPContext* context);
    bool isKnown(GstRTSPAuth* checker, GstRTSPContext* context) const;
    bool allows(const GstRTSPTransport& transport) const;
    bool chooseTransport(GstRTSPMessage* request) const;
    void misbehave(GstRTSPMessage* answer, const FaultSet& faults);
    void record(GstRTSPMessage* request, int status);

    Device& device_;
    const std::vector<std::unique_ptr<RtspChannel>>& channels_;
    Connection& connection_;
    const std::uint64_t number_;
    const bool tunnelled_;
    std::int64_t requestTime_ = 0; // of the current request; 0 between requests
    int answers_ = 0;
    std::set<int> joined_;
    std::atomic<int> channel_ = -1; // the one that was played last; -1: none
};
