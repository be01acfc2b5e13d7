#include "events/thread_start.h"

#include "process/signal_mask.h"

#include <libcommon/log.h>

#include <cstring>
#include <pthread.h>

namespace {

constexpr int tries = 40;
constexpr int betweenTries = 50; // milliseconds

} // namespace

bool startDetachedThread(void* (*body)(void*), void* argument, std::size_t stackSize, const char* what) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0)
        pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread{};
    int error = pthread_create(&thread, &attributes, body, argument);
    if (error != 0)
        logmsg(3, "Failed to start the thread of %s, trying again. (errno=%d %s)", what, error,
               std::strerror(error));
    for (int i = 1; i < tries && error != 0; ++i) {
        pauseMilliseconds(betweenTries);
        error = pthread_create(&thread, &attributes, body, argument);
    }
    pthread_attr_destroy(&attributes);
    if (error != 0)
        logmsg(2, "Failed to start the thread of %s. (errno=%d %s)", what, error, std::strerror(error));
    return error == 0;
}
