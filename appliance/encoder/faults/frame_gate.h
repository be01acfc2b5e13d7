// Counts the frames that were sent to one client and decides what the active faults do to the next one.
#pragma once

#include "appliance/encoder/faults/faults.h"

class FrameGate {
public:
    enum class Step { Send, Repeat, Hold, Cut };

    Step next(const FaultSet& faults) const {
        if (faults.has(Fault::Close) && sent_ >= faults.number(Fault::Close))
            return Step::Cut;
        if (faults.has(Fault::Stall) && sent_ >= faults.number(Fault::Stall))
            return Step::Hold;
        // A frame can be repeated only after it was sent once.
        if (faults.has(Fault::Freeze) && sent_ > 0 && sent_ >= faults.number(Fault::Freeze))
            return Step::Repeat;
        return Step::Send;
    }
    void sent() { ++sent_; }

private:
    int sent_ = 0;
};
