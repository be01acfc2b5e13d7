// supervisor_bench: what the supervisor costs, beside bare programs and the supervisors of other projects.
//
// Its players show nothing (tiny_player). Figures are lines "sample ROW SIDE VALUE".
#include "bench/memory_files.h"
#include "bench/supervisor/measures.h"
#include "tests/appliance/isolation.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <utility>
#include <vector>

int main(int argc, char** argv) {
    CLI::App app{"Measures what the supervisor costs."};
    app.require_subcommand(1);
    app.fallthrough();
    bench::SupervisorOptions options;
    app.add_option("--repetitions", options.repetitions, "measurements of each side")
        ->check(CLI::Range(1, 10'000));
    app.add_option("--switches", options.switches, "idle: switches before the second look at the memory")
        ->check(CLI::Range(0, 100'000));
    app.add_option("--seconds", options.seconds, "idle, many: how long")->check(CLI::Range(1, 600));
    app.add_option("--supervisors", options.supervisors, "many: how many")->check(CLI::Range(1, 500));
    using Measure = bool (*)(const bench::SupervisorOptions&);
    const std::vector<std::pair<CLI::App*, Measure>> measures{
        {app.add_subcommand("launch", "from a select to the player's first instruction"),
         bench::measureLaunch},
        {app.add_subcommand("death", "from a player's death to the reaction"), bench::measureDeath},
        {app.add_subcommand("restart", "from a player's death to the next player"), bench::measureRestart},
        {app.add_subcommand("start", "from the start to the first player"), bench::measureStart},
        {app.add_subcommand("idle", "wake-ups and memory"), bench::measureIdle},
        {app.add_subcommand("many", "many supervisors, each with one select a second"), bench::measureMany}};
    CLI11_PARSE(app, argc, argv);
    bench::keepFilesInMemory();
    if (!appliance::isolate())
        std::cout << "note: this user may not make namespaces; the message queues are shared\n";
    try {
        for (const auto& [command, measure] : measures)
            if (command->parsed() && !measure(options))
                return 1;
    } catch (const std::exception& error) {
        std::cerr << "supervisor_bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
