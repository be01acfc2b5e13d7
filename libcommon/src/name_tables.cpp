// The names of the numbers that the status store shows as texts.
#include <libcommon/log.h>
#include <libcommon/status.h>

#include <strings.h>

const char* const videoSourceTypeString[9] = {
    "auto",           "mjpeg",    "mpeg2-unicast", "mpeg2-multicast", "rtsp-unicast",
    "rtsp-multicast", "rtsp-tcp", "rtsp-http",     "unknown",
};

const char* const connectModeString[5] = {"auto", "http", "http-auth", "https", "unknown"};

const char* const audioSourceTypeString[6] = {"none", "mpeg", "g711", "g726", "aac", "unknown"};

int getNumberByString(const char* text, const char* const* table, std::size_t size) {
    if (text == nullptr || *text == '\0')
        return 0;
    for (std::size_t i = 0; i < size; ++i)
        if (table[i] != nullptr && strcasecmp(text, table[i]) == 0)
            return static_cast<int>(i);
    logmsg(3, "\"%.200s\" is none of the %zu known names.", text, size);
    return -1;
}
