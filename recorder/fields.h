// The fields of a checkpoint: one list of them for writing, for restoring and for comparing.
#pragma once

#include "recorder/recorder.h"

namespace recorder {

class Fields {
public:
    // `restores`: the values are taken over from the tape; otherwise they are written, or compared with the tape.
    Fields(Crossing& crossing, bool restores) : crossing_(crossing), restores_(restores) {}

    template<class Value>
    Fields& operator()(Value& value) {
        if (restores_)
            crossing_.out(value);
        else
            crossing_.in(value);
        return *this;
    }
    bool restores() const { return restores_; }

private:
    Crossing& crossing_;
    bool restores_;
};

} // namespace recorder
