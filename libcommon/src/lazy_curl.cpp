// libcurl, loaded when it is first used.
//
// Loading libcurl with the thirty libraries that it needs takes longer than everything else that a player does before its
// first request, and only TLS and passwords need it. So these functions have libcurl's names, and each
// passes its call on to the library, which the first call loads. They are hidden: other libraries call libcurl's own.
// When libcurl can't be loaded, no handle is made, as when libcurl has no memory.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

#include <libcommon/log.h>

#include <cstdarg>
#include <dlfcn.h>

#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_multi_setopt

#define HIDDEN extern "C" __attribute__((visibility("hidden")))

namespace {

void* loadLibrary() {
    void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        logmsg(3, "libcurl can't be loaded: %s", dlerror());
    return library;
}

// Null when libcurl does not have that function.
template<class Function>
Function* find(const char* name) {
    static void* const library = loadLibrary();
    return library == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(library, name));
}

// Calls libcurl's function of that name. Without libcurl it returns `otherwise`.
#define PASS_ON(name, otherwise, ...)                                                                        \
    static auto* const function = find<decltype(name)>(#name);                                               \
    return function == nullptr ? (otherwise) : function(__VA_ARGS__)

// Without a result.
#define PASS_ON_VOID(name, ...)                                                                              \
    static auto* const function = find<decltype(name)>(#name);                                               \
    if (function != nullptr)                                                                                 \
    function(__VA_ARGS__)

enum class Kind { number, pointer, offset };

// The type of an option's value follows from its number.
Kind kindOf(int option) {
    if (option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB)
        return Kind::offset;
    return option >= CURLOPTTYPE_OBJECTPOINT ? Kind::pointer : Kind::number;
}

// The one value of a call with an option, passed on to `function`.
template<class Function, class Handle, class Option>
auto passValue(Function* function, Handle* handle, Option option, va_list values) {
    const Kind kind = kindOf(static_cast<int>(option));
    if (kind == Kind::offset)
        return function(handle, option, va_arg(values, curl_off_t));
    if (kind == Kind::pointer)
        return function(handle, option, va_arg(values, void*));
    return function(handle, option, va_arg(values, long));
}

} // namespace

HIDDEN CURLcode curl_global_init(long flags) {
    PASS_ON(curl_global_init, CURLE_FAILED_INIT, flags);
}

HIDDEN CURL* curl_easy_init() {
    PASS_ON(curl_easy_init, nullptr);
}

HIDDEN CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    static auto* const function = find<decltype(curl_easy_setopt)>("curl_easy_setopt");
    if (function == nullptr)
        return CURLE_FAILED_INIT;
    va_list values;
    va_start(values, option);
    const CURLcode code = passValue(function, handle, option, values);
    va_end(values);
    return code;
}

HIDDEN CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    static auto* const function = find<decltype(curl_easy_getinfo)>("curl_easy_getinfo");
    if (function == nullptr)
        return CURLE_FAILED_INIT;
    va_list values;
    va_start(values, info);
    const CURLcode code = function(handle, info, va_arg(values, void*)); // always a pointer
    va_end(values);
    return code;
}

HIDDEN CURLcode curl_easy_perform(CURL* handle) {
    PASS_ON(curl_easy_perform, CURLE_FAILED_INIT, handle);
}

HIDDEN CURLcode curl_easy_send(CURL* handle, const void* bytes, size_t count, size_t* sent) {
    PASS_ON(curl_easy_send, CURLE_FAILED_INIT, handle, bytes, count, sent);
}

HIDDEN CURLcode curl_easy_recv(CURL* handle, void* bytes, size_t size, size_t* count) {
    PASS_ON(curl_easy_recv, CURLE_FAILED_INIT, handle, bytes, size, count);
}

HIDDEN void curl_easy_reset(CURL* handle) {
    PASS_ON_VOID(curl_easy_reset, handle);
}

HIDDEN void curl_easy_cleanup(CURL* handle) {
    PASS_ON_VOID(curl_easy_cleanup, handle);
}

HIDDEN const char* curl_easy_strerror(CURLcode code) {
    PASS_ON(curl_easy_strerror, "libcurl can't be loaded", code);
}

HIDDEN curl_slist* curl_slist_append(curl_slist* list, const char* text) {
    PASS_ON(curl_slist_append, nullptr, list, text);
}

HIDDEN void curl_slist_free_all(curl_slist* list) {
    PASS_ON_VOID(curl_slist_free_all, list);
}

HIDDEN CURLU* curl_url() {
    PASS_ON(curl_url, nullptr);
}

HIDDEN CURLUcode curl_url_set(CURLU* url, CURLUPart part, const char* text, unsigned flags) {
    PASS_ON(curl_url_set, CURLUE_OUT_OF_MEMORY, url, part, text, flags);
}

HIDDEN void curl_url_cleanup(CURLU* url) {
    PASS_ON_VOID(curl_url_cleanup, url);
}

HIDDEN CURLM* curl_multi_init() {
    PASS_ON(curl_multi_init, nullptr);
}

HIDDEN CURLMcode curl_multi_setopt(CURLM* handle, CURLMoption option, ...) {
    static auto* const function = find<decltype(curl_multi_setopt)>("curl_multi_setopt");
    if (function == nullptr)
        return CURLM_INTERNAL_ERROR;
    va_list values;
    va_start(values, option);
    const CURLMcode code = passValue(function, handle, option, values);
    va_end(values);
    return code;
}

HIDDEN CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy) {
    PASS_ON(curl_multi_add_handle, CURLM_INTERNAL_ERROR, multi, easy);
}

HIDDEN CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* easy) {
    PASS_ON(curl_multi_remove_handle, CURLM_INTERNAL_ERROR, multi, easy);
}

HIDDEN CURLMcode curl_multi_socket_action(CURLM* multi, curl_socket_t socket, int events, int* running) {
    PASS_ON(curl_multi_socket_action, CURLM_INTERNAL_ERROR, multi, socket, events, running);
}

HIDDEN CURLMcode curl_multi_timeout(CURLM* multi, long* milliseconds) {
    PASS_ON(curl_multi_timeout, CURLM_INTERNAL_ERROR, multi, milliseconds);
}

HIDDEN CURLMsg* curl_multi_info_read(CURLM* multi, int* queued) {
    PASS_ON(curl_multi_info_read, nullptr, multi, queued);
}

HIDDEN CURLMcode curl_multi_cleanup(CURLM* multi) {
    PASS_ON(curl_multi_cleanup, CURLM_INTERNAL_ERROR, multi);
}
