// Loaded into a decoder's programs by LD_PRELOAD: libavcodec has no decoder for H.265, as in builds without it.
#include <cstring>
#include <dlfcn.h>

struct AVCodec;

extern "C" const AVCodec* avcodec_find_decoder_by_name(const char* name) {
    using Find = const AVCodec* (*)(const char* name);
    static const auto find = reinterpret_cast<Find>(dlsym(RTLD_NEXT, "avcodec_find_decoder_by_name"));
    return find == nullptr || std::strcmp(name, "hevc") == 0 ? nullptr : find(name);
}
