#include "detect/rtsp_transport_wait.h"

#include "detect/probe_wait.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <libcommon/interrupt.h>

#include <cerrno>
#include <sys/socket.h>

namespace detect {
namespace {

enum class Received { Packet, Nothing, Failure };

// MSG_DONTWAIT is necessary: a packet with a bad checksum makes a socket readable but is gone when it is read, and a
// blocking wait for the next one would let no signal in.
Received receive(int socket) {
    char packet[2048];
    if (recv(socket, packet, sizeof packet, MSG_WAITALL | MSG_DONTWAIT) >= 0)
        return Received::Packet;
    return errno == EAGAIN ? Received::Nothing : Received::Failure;
}

struct Side {
    int socket;
    const char* firstPacket; // the text that is printed for it
    bool delivered = false;
};

bool receiveFrom(Side& side) {
    const Received received = receive(side.socket);
    if (received == Received::Packet) {
        printTrace("%s", side.firstPacket);
        side.delivered = true;
    }
    return received != Received::Failure;
}

int awaitBoth(int dataSocket, int controlSocket, int seconds) {
    Side sides[2] = {{dataSocket, "gotData"}, {controlSocket, "gotRTCP"}};
    while (!sides[0].delivered || !sides[1].delivered) {
        pollfd sockets[2];
        for (int i = 0; i < 2; ++i)
            sockets[i] = {sides[i].delivered ? -1 : sides[i].socket, POLLIN, 0}; // poll ignores -1
        const int ready = waitReadable(sockets, seconds);
        if (ready == -1 && errno == EINTR)
            setInterrupted();
        if (ready <= 0)
            return -1;
        for (int i = 0; i < 2; ++i)
            if (sockets[i].revents != 0 && !receiveFrom(sides[i]))
                return -1;
    }
    return 1;
}

} // namespace

int waitForTransport(int dataSocket, int controlSocket, int seconds) {
    return recorder::outcome("transport", [&] { return awaitBoth(dataSocket, controlSocket, seconds); });
}

} // namespace detect
