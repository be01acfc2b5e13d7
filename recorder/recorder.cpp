#include "recorder/recorder.h"

#include "process/paths.h"
#include "recorder/ring.h"
#include "recorder/secrets.h"
#include "recorder/text_fields.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/params.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace recorder {
namespace {

constexpr int defaultKiB = 1024;
constexpr int mostKiB = 65536;
constexpr int formatVersion = 1; // of the lines

// All process-wide state of this file. Written by the main thread before others exist, and by tests.
std::atomic<Ring*> ring{nullptr};
Tape* tape = nullptr;
// Cells that were written at the last checkpoint, and how many checkpoints there were. Main thread.
std::uint64_t lastCheckpoint = 0;
std::uint64_t checkpoints = 0;
// Of each thread: its letter, the crossings that it is in, and the line that it writes.
thread_local char letter = 'm';
thread_local int depth = 0;
thread_local std::string line;

int configuredKiB() {
    const std::string text = ParamWrapper(0, true)["Decoder.RecordingSize"].toString();
    if (text.empty())
        return defaultKiB;
    return static_cast<int>(std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), 0, mostKiB));
}

std::int64_t timeOfDay() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// Who records. "run" at the beginning, "about" at each checkpoint, because the beginning is overwritten some day.
void writeSupervisor(const char* call) {
    Crossing crossing(call);
    crossing.in(formatVersion).in(getpid()).in(timeOfDay()).in(HOUSE_VERSION);
}

} // namespace

bool startRecordingTo(const std::string& path, std::size_t bytes) {
    ring = Ring::open(path, bytes).release(); // never destroyed: threads write while the process exits
    if (ring == nullptr)
        return false;
    lastCheckpoint = 0;
    checkpoints = 0;
    writeSupervisor("run");
    return true;
}

void stopRecording() {
    delete ring.exchange(nullptr);
}

void startRecording() {
    const int size = configuredKiB();
    const std::string file = underApplianceRoot(recordingFile);
    if (size == 0)
        return;
    if (!startRecordingTo(file, static_cast<std::size_t>(size) * 1024))
        logmsg(3, "Nothing is recorded: %s can't be made. (errno=%d %s)", file.c_str(), errno,
               std::strerror(errno));
}

void recordAsEventHandler() {
    letter = 'e';
}

void replay(Tape* newTape) {
    tape = newTape;
    checkpoints = 0;
}

Tape* replayed() {
    return tape;
}

bool isCheckpointDue() {
    if (tape != nullptr)
        return tape->isNext("machine");
    const Ring* file = ring;
    return file != nullptr && (checkpoints == 0 || file->written() - lastCheckpoint > file->size() / 4);
}

void checkpointBegins() {
    ++checkpoints;
    if (const Ring* file = ring) {
        lastCheckpoint = file->written();
        writeSupervisor("about");
    }
}

std::uint64_t checkpointsBegun() {
    return checkpoints;
}

Crossing::Crossing(const char* call) : call_(call), mode_(Mode::inactive) {
    if (tape == nullptr && ring == nullptr)
        return;
    if (tape != nullptr) {
        left_ = tape->take(call).fields;
        mode_ = Mode::replays;
    } else if (depth == 0) {
        mode_ = Mode::records;
        line.clear();
    }
    ++depth;
}

Crossing::~Crossing() {
    if (tape == nullptr && ring == nullptr)
        return;
    --depth;
    if (!records())
        return;
    std::array<char, 64> begin;
    char* end = std::to_chars(begin.data(), begin.data() + 24, gettimeusec()).ptr;
    *end++ = ' ';
    *end++ = letter;
    *end++ = ' ';
    end += std::string_view(call_).copy(end, 24);
    line.insert(0, begin.data(), static_cast<std::size_t>(end - begin.data()));
    ring.load()->append(line);
}

void Crossing::readFailed() const {
    throw Different(std::string("the recorded line of ") + call_ + " can't be read");
}

Crossing& Crossing::in(std::int64_t number) {
    if (records())
        appendNumber(line, number);
    std::int64_t recorded = 0;
    if (!replays())
        return *this;
    if (!takeNumber(left_, recorded))
        readFailed();
    if (recorded != number)
        throw Different(std::string(call_) + ": recorded " + std::to_string(recorded) + ", now " +
                        std::to_string(number));
    return *this;
}

Crossing& Crossing::in(std::string_view text) {
    if (mode_ == Mode::inactive)
        return *this;
    if (records()) {
        appendText(line, withoutSecrets(text));
        return *this;
    }
    std::string recorded;
    if (!takeText(left_, recorded))
        readFailed();
    if (recorded != text)
        throw Different(std::string(call_) + ": recorded \"" + recorded + "\", now \"" + std::string(text) +
                        '"');
    return *this;
}

Crossing& Crossing::out(std::int64_t& number) {
    if (records())
        appendNumber(line, number);
    if (replays() && !takeNumber(left_, number))
        readFailed();
    return *this;
}

Crossing& Crossing::out(int& number) {
    std::int64_t wide = number;
    out(wide);
    if (wide < INT_MIN || wide > INT_MAX)
        readFailed();
    number = static_cast<int>(wide);
    return *this;
}

Crossing& Crossing::out(bool& flag) {
    std::int64_t number = flag ? 1 : 0;
    out(number);
    flag = number != 0;
    return *this;
}

Crossing& Crossing::out(std::string& text) {
    if (records())
        appendText(line, withoutSecrets(text));
    if (replays() && !takeText(left_, text))
        readFailed();
    return *this;
}

} // namespace recorder
