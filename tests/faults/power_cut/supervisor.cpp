// The supervisor as a writer: it starts, switches, writes a parameter and ends.
#include "tests/faults/power_cut/writer.h"

#include "tests/appliance/isolation.h"
#include "tests/faults/small_decoder.h"

#include <csignal>

namespace faults {

namespace {

constexpr int eventSelect = 11;
constexpr double patience = 25;

class Supervisor : public Writer {
public:
    std::string root() const override { return decoder_.root(); }
    std::vector<std::string> command() const override { return decoder_.command(); }
    std::map<std::string, std::string> environment() const override { return decoder_.environment(); }
    std::string output() const override { return decoder_.output(); }
    bool isSlow() const override { return true; }

    void use(Traced& program) override {
        if (!plays(program, 0) || !decoder_.send(eventSelect, 1) || !plays(program, 1))
            return;
        kill(program.pid(), SIGINT);
        program.waitForEnd(patience);
    }

    std::string nextFails() override {
        if (!decoder_.hasBothSources())
            return "a source is lost";
        return nextStartFails(decoder_);
    }

private:
    bool plays(Traced& program, int source) const {
        const double until = secondsNow() + patience;
        while (secondsNow() < until && !program.waitForEnd(0))
            if (decoder_.plays(source, 0.05))
                return true;
        return false;
    }

    SmallDecoder decoder_;
};

} // namespace

std::unique_ptr<Writer> makeSupervisorWriter() {
    return std::make_unique<Supervisor>();
}

} // namespace faults
