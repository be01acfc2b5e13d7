// What the appliance library's everyday calls cost. Works in a temporary appliance root of its own.
#include <libcommon/libcommon.h>

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;

// The button thread does this all the time: one stat and a look-up.
void readFreshParameter(benchmark::State& state) {
    const ParamWrapper params(0, true);
    for (auto _ : state)
        benchmark::DoNotOptimize(params["Buttons.VideoSelectEnabled"] == "yes");
}
BENCHMARK(readFreshParameter);

void readSnapshotParameter(benchmark::State& state) {
    const ParamWrapper params(0, false);
    for (auto _ : state)
        benchmark::DoNotOptimize(params["Buttons.VideoSelectEnabled"] == "yes");
}
BENCHMARK(readSnapshotParameter);

void readSixteenSources(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(getSubGroups(0, "Encoder"));
}
BENCHMARK(readSixteenSources);

// File 1 is written often and need not survive a power cut.
void writeInfoParameter(benchmark::State& state) {
    const ParamWrapper params(1, true);
    int source = 0;
    for (auto _ : state)
        params["Decoder.Info.CurrentSource"] = ++source;
}
BENCHMARK(writeInfoParameter);

void writeDurableParameter(benchmark::State& state) {
    const ParamWrapper params(0, true);
    int number = 0;
    for (auto _ : state)
        params["Decoder.Number"] = ++number;
}
BENCHMARK(writeDurableParameter);

void writeStatusValue(benchmark::State& state) {
    int number = 0;
    for (auto _ : state)
        status(0, "ErrorCode", ++number);
}
BENCHMARK(writeStatusValue);

void sendAndTakeOneEvent(benchmark::State& state) {
    Event event{};
    event.id = EID_SELECT;
    for (auto _ : state) {
        sendEvent(&event);
        waitEvent(&event);
    }
}
BENCHMARK(sendAndTakeOneEvent);

// There and back between two threads that sleep in waitEvent: here through the queue, back through a
// semaphore.
void eventToASleepingThreadAndBack(benchmark::State& state) {
    semaphoreInit(2001);
    std::thread handler([] {
        Event event{};
        while (waitEvent(&event) == 0 && event.id != EID_LOCK)
            semaphoreIncrease(2001);
    });
    Event event{};
    event.id = EID_SELECT;
    for (auto _ : state) {
        sendEvent(&event);
        semaphoreDecrease(2001);
    }
    event.id = EID_LOCK;
    sendEvent(&event);
    handler.join();
}
BENCHMARK(eventToASleepingThreadAndBack)->UseRealTime();

void logLineToAFile(benchmark::State& state) {
    for (auto _ : state)
        logmsg(7, "eventHandler() adding event to queue (id=%d, val=(%d,%d))", 11, 3, 0);
}
BENCHMARK(logLineToAFile);

void showText(benchmark::State& state) {
    for (auto _ : state)
        osdPrintf(0, 5, "No connection to encoder %s(%s)", "Gate", "10.0.0.1");
}
BENCHMARK(showText);

void writeParameters(const std::string& root) {
    fs::create_directories(root + "/etc/decoder");
    std::ofstream file(root + "/etc/decoder/decoder.conf");
    file << "[Decoder]\nConnected = yes\nNumber = 0\n\n[Buttons]\nVideoSelectEnabled = yes\n";
    for (int i = 0; i < 16; ++i)
        file << "\n[Encoder.Source" << i << "]\nAddress = 10.0.0." << i
             << "\nVideoSourceNumber = 1\nVideoSourceType = auto\nUserName = viewer\nPassword = x\n"
                "AutoEnabled = yes\nManualEnabled = yes\nDisplayTime = 10\n";
}

} // namespace

int main(int argc, char** argv) {
    std::string root = (fs::temp_directory_path() / "libcommon-bench-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr)
        return 1;
    setenv("APPLIANCE_ROOT", root.c_str(), 1);
    setenv("LIBCOMMON_LOG", (root + "/log").c_str(), 1);
    writeParameters(root);
    benchmark::Initialize(&argc, argv);
    int result = 1;
    if (!benchmark::ReportUnrecognizedArguments(argc, argv) && initEventQueue() == 0) {
        benchmark::RunSpecifiedBenchmarks();
        result = 0;
    }
    removeEventQueue();
    libcommon::Sweep swept;
    libcommon::sweep(swept);
    fs::remove_all(root);
    return result;
}
