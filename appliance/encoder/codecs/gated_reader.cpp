#include "appliance/encoder/codecs/gated_reader.h"

std::optional<GatedReader::Turn> GatedReader::next(std::chrono::milliseconds timeout) {
    const AccessUnitPtr unit = reader_.next(timeout);
    if (!unit)
        return std::nullopt;
    Turn turn{gate_.next(faults_.current()), unit, unit->time};
    if (turn.step == FrameGate::Step::Repeat && lastKey_)
        turn.unit = lastKey_;
    if (turn.step == FrameGate::Step::Send) {
        gate_.sent();
        if (unit->key)
            lastKey_ = unit;
    }
    return turn;
}
