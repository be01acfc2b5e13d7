// A client that watches a stream all the time and notes when key pictures come.
#pragma once

#include <atomic>
#include <gst/gst.h>
#include <optional>
#include <string>

namespace bench {

// Any thread.
class KeyPictures {
public:
    // `pipeline`: the words of gst-launch-1.0, from the source to a parser of the codec. Plays until it is destroyed. Throws
    // std::runtime_error when there is no such pipeline.
    explicit KeyPictures(const std::string& pipeline);
    ~KeyPictures();
    KeyPictures(const KeyPictures&) = delete;
    KeyPictures& operator=(const KeyPictures&) = delete;

    // When the last one came, in milliseconds of clockMs(). std::nullopt: none came yet.
    std::optional<double> last() const;

private:
    static GstPadProbeReturn note(GstPad* pad, GstPadProbeInfo* info, gpointer self);

    GstElement* pipeline_ = nullptr;
    std::atomic<double> last_ = 0; // 0: none
};

// Milliseconds from `now` to the next moment that is `wanted` milliseconds after a key picture and at least `least` away.
// `last`: when one of them came; the next ones come a `period` apart. All in milliseconds; 0 <= wanted < period.
double untilPhase(double now, double last, double period, double wanted, double least);

} // namespace bench
