#include "replay/replay.h"

#include "launcher/checkpoint.h"
#include "launcher/machine.h"
#include "launcher/state_machine.h"
#include "launcher/state_table.h"
#include "recorder/recorder.h"
#include "recorder/text_fields.h"

namespace replay {
namespace {

using recorder::Tape;
using recorder::TapeLine;

// The tape is what the supervisor's code reads, for the life of the object.
class Playing {
public:
    explicit Playing(Tape& tape) { recorder::replay(&tape); }
    ~Playing() { recorder::replay(nullptr); }
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;
};

void resetMachine() {
    machine = Machine{};
    machine.configuration.emplace(0, true);
    machine.information.emplace(1, true);
}

Transition transitionOf(const TapeLine& line) {
    std::string_view fields = line.fields;
    std::int64_t from = 0;
    std::int64_t to = 0;
    recorder::takeNumber(fields, from);
    recorder::takeNumber(fields, to);
    return {line.time, static_cast<int>(from), static_cast<int>(to)};
}

// One turn after the other. Shows the transitions of each turn, also of one that does not end.
class Run {
public:
    Run(const Part& part, const std::function<void(const Transition&)>& show)
        : part_(part), show_(show), tape_(part.lines) {}

    Result run() {
        const Playing playing(tape_);
        resetMachine();
        try {
            for (;;)
                turn();
        } catch (const recorder::EndOfTape&) {
            showTransitions(tape_.taken());
        } catch (const recorder::Different& difference) {
            // The line in which they differ may have been taken already.
            showTransitions(tape_.taken() - (tape_.taken() > shown_ ? 1 : 0));
            result_.difference = difference.what();
        }
        return result_;
    }

private:
    void turn() {
        const std::size_t before = tape_.taken();
        exchangeCheckpoint();
        runState();
        if (tape_.taken() == before)
            throw recorder::Different("the machine stands still in state " +
                                      std::to_string(machine.currentState));
        showTransitions(tape_.taken());
    }

    void showTransitions(std::size_t end) {
        for (; shown_ < end; ++shown_) {
            if (part_.lines[shown_].call != "state")
                continue;
            ++result_.transitions;
            show_(transitionOf(part_.lines[shown_]));
        }
    }

    const Part& part_;
    const std::function<void(const Transition&)>& show_;
    Tape tape_;
    std::size_t shown_ = 0;
    Result result_;
};

} // namespace

Result replayPart(const Part& part, const std::function<void(const Transition&)>& show) {
    return Run(part, show).run();
}

std::string textOf(const Transition& transition) {
    const auto name = [](int state) {
        return std::string(stateName(state)) + '(' + std::to_string(state) + ')';
    };
    return name(transition.from) + " -> " + name(transition.to);
}

} // namespace replay
