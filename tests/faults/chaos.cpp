// Chaos: a whole site in which everything is broken at random, and always comes back.
//
// An item is a round: faults for a while, then none. Then each decoder and the monitor show moving pictures again within
// the longest documented sleep, the players' patience and one detection.
#include "tests/appliance/isolation.h"
#include "tests/faults/plan.h"
#include "tests/faults/progress.h"
#include "tests/faults/site.h"
#include "tests/faults/watch.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>

namespace {

using appliance::Seconds;
using faults::Plan;
using faults::Progress;
using faults::Site;
using faults::Watch;
using Clock = std::chrono::steady_clock;

constexpr double roundSeconds = 20;
constexpr double longestSleep = 10;    // after an error, and of a lock
constexpr double playersPatience = 10; // a player that waits for a picture ends after this time
constexpr double detection = Site::detectTimeout;
constexpr double busyMachine = 10;
constexpr Seconds backLimit{longestSleep + playersPatience + detection + busyMachine};
constexpr Seconds accountLimit{10};
constexpr int skipped = 77;

volatile std::sig_atomic_t interrupted = 0;

double secondsSince(Clock::time_point begin) {
    return Seconds(Clock::now() - begin).count();
}

class Chaos {
public:
    Chaos(Site& site, Progress& progress) : site_(site), progress_(progress) {
        for (std::size_t i = 0; i < site.decoders(); ++i)
            decoders_.push_back(&site.decoder(i));
        watch_ = std::make_unique<Watch>(decoders_);
    }

    void round() {
        const std::size_t before = watch_->playersStarted();
        Plan plan(site_, progress_,
                  progress_.options().seed * 1'000'003U + static_cast<unsigned>(progress_.next()));
        const double seconds = std::min(roundSeconds, std::max(5.0, progress_.secondsLeft()));
        for (const auto begin = Clock::now(); secondsSince(begin) < seconds && interrupted == 0;) {
            plan.step();
            reportProblems(plan);
        }
        plan.mendAll();
        comeBack(plan);
        account();
        reportProblems(plan);
        keepFigures(before);
    }

private:
    void comeBack(Plan& plan) {
        const auto begin = Clock::now();
        const auto left = [&] { return Seconds(std::max(0.5, backLimit.count() - secondsSince(begin))); };
        for (std::size_t i = 0; i < decoders_.size(); ++i) {
            if (site_.movingSource(i, left()) >= 0) {
                progress_.max("seconds-until-picture-max", secondsSince(begin));
                progress_.add("pictures-back");
                continue;
            }
            broken("no picture of decoder " + std::to_string(i) + " after " +
                       std::to_string(secondsSince(begin)) + " s; it is in " + decoders_[i]->state() + "; " +
                       decoders_[i]->ctl({"status"}).output,
                   plan);
        }
        // A signal to a service that was stopped takes effect only now.
        for (const auto& service : site_.services())
            if (!appliance::eventually(
                    [&] {
                        plan.keepRunning();
                        return service->isReady();
                    },
                    left()))
                broken(service->name() + " does not come back", plan);
        if (!site_.wallMoves(left() + Seconds(busyMachine)))
            broken("no pictures on the monitor", plan);
    }

    // An exit may still be on its way into the log.
    void account() {
        std::vector<std::string> lost;
        appliance::eventually(
            [&] {
                lost = watch_->lostExits();
                return lost.empty();
            },
            accountLimit);
        for (const std::string& one : lost)
            if (told_.insert(one).second)
                progress_.broken(one);
    }

    void broken(const std::string& text, const Plan& plan) {
        progress_.broken(text);
        std::cout << "    what was done last:\n";
        for (const std::string& line : plan.last())
            std::cout << "    " << line << '\n';
        keepLogs();
    }

    // For a look at what happened, beside the state file.
    void keepLogs() {
        if (progress_.options().stateFile.empty())
            return;
        for (std::size_t i = 0; i < decoders_.size(); ++i) {
            const std::string to = progress_.options().stateFile + "-" + std::to_string(progress_.next()) +
                                   "-" + std::to_string(i) + ".log";
            std::error_code ignored;
            std::filesystem::copy_file(decoders_[i]->logFile(), to,
                                       std::filesystem::copy_options::overwrite_existing, ignored);
        }
    }

    void reportProblems(const Plan& plan) {
        for (const std::string& problem : watch_->problems())
            broken(problem, plan);
    }

    void keepFigures(std::size_t startedBefore) {
        progress_.add("players-started", static_cast<double>(watch_->playersStarted() - startedBefore));
        progress_.max("players-of-a-decoder-max", watch_->mostPlayers());
        progress_.max("zombie-seconds-max", watch_->longestZombie());
        progress_.max("status-answer-seconds-max", watch_->slowestAnswer());
    }

    Site& site_;
    Progress& progress_;
    std::vector<appliance::Appliance*> decoders_;
    std::unique_ptr<Watch> watch_;
    std::set<std::string> told_;
};

int run(const faults::Options& options) {
    Progress progress(options, 0);
    if (!appliance::isolate()) {
        std::cout << "needs a network namespace and System V queues of its own\n";
        return skipped;
    }
    faults::becomeSubreaper();
    {
        Site site;
        if (!site.missing().empty())
            std::cout << "not part of it: " << site.missing() << '\n';
        if (const std::string problem = site.start(); !problem.empty()) {
            progress.broken("at the start: " + problem);
            return progress.end();
        }
        Chaos chaos(site, progress);
        const auto begin = Clock::now();
        while (progress.more() && interrupted == 0) {
            chaos.round();
            progress.done();
        }
        progress.add("minutes", secondsSince(begin) / 60);
    }
    // The end of the decoders has looked for what they left behind.
    if (testing::Test::HasFailure())
        progress.broken("something was left behind, see above");
    return progress.end();
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(); // the decoders report what they left behind through it
    int status = 0;
    const auto options = faults::readOptions(
        argc, argv,
        "Breaks programs, files and the network of a whole site at random, and looks whether it holds.",
        status);
    if (!options)
        return status;
    signal(SIGINT, [](int) { interrupted = 1; });
    signal(SIGTERM, [](int) { interrupted = 1; });
    signal(SIGPIPE, SIG_IGN);
    try {
        return run(*options);
    } catch (const std::exception& error) {
        std::cout << "broken: " << error.what() << '\n';
        return 1;
    }
}
