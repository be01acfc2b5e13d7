// Counts the frames that one client was sent and says what the faults in force make of the next one.
#pragma once

#include "appliance/encoder/faults.h"

class FrameGate {
public:
    enum class Step { Send, Repeat, Hold, Cut };

    Step next(const FaultSet& faults) const {
        if (faults.has(Fault::Close) && sent_ >= faults.number(Fault::Close))
            return Step::Cut;
        if (faults.has(Fault::Stall) && sent_ >= faults.number(Fault::Stall))
            return Step::Hold;
        // There must be one picture to repeat.
        if (faults.has(Fault::Freeze) && sent_ > 0 && sent_ >= faults.number(Fault::Freeze))
            return Step::Repeat;
        return Step::Send;
    }
    void sent() { ++sent_; }

private:
    int sent_ = 0;
};
