#include "appliance/panel/web/worker.h"

#include "appliance/panel/web/stream_ends.h"

#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace panel {
namespace {

// A task that runs until the test lets it go.
struct Gate {
    std::promise<void> entered;
    std::promise<void> open;

    std::function<void()> task() {
        return [this] {
            entered.set_value();
            open.get_future().wait();
        };
    }
};

void nothing(const std::exception_ptr& /*failure*/) {}

TEST(PanelWorker, RunsTasksInTheirOrderAndTellsTheMainLoop) {
    Worker worker;
    std::vector<int> tasks;
    std::vector<int> done;
    std::thread::id taskThread;
    std::thread::id doneThread;
    for (int number = 0; number < 20; ++number) {
        const bool taken = worker.run(
            [&, number] {
                tasks.push_back(number);
                taskThread = std::this_thread::get_id();
            },
            [&, number](const std::exception_ptr& failure) {
                EXPECT_EQ(failure, nullptr);
                done.push_back(number);
                doneThread = std::this_thread::get_id();
            });
        EXPECT_TRUE(taken);
    }
    ASSERT_TRUE(runUntil([&] { return done.size() == 20; }));
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_EQ(tasks, done);
    EXPECT_EQ(doneThread, std::this_thread::get_id());
    EXPECT_NE(taskThread, std::this_thread::get_id());
}

TEST(PanelWorker, FailureOfATaskGoesToItsDone) {
    Worker worker;
    std::string reason;
    int later = 0;
    EXPECT_TRUE(worker.run([] { throw std::runtime_error("no disk"); },
                           [&reason](const std::exception_ptr& failure) {
                               try {
                                   std::rethrow_exception(failure);
                               } catch (const std::exception& error) {
                                   reason = error.what();
                               }
                           }));
    EXPECT_TRUE(worker.run([] {},
                           [&later](const std::exception_ptr& failure) {
                               EXPECT_EQ(failure, nullptr);
                               ++later;
                           }));
    EXPECT_TRUE(runUntil([&later] { return later == 1; }));
    EXPECT_EQ(reason, "no disk");
}

TEST(PanelWorker, RefusesATaskWhenTooManyWait) {
    Gate gate;
    int finished = 0;
    const auto count = [&finished](const std::exception_ptr&) { ++finished; };
    Worker worker(2);
    EXPECT_TRUE(worker.run(gate.task(), count));
    gate.entered.get_future().wait();
    EXPECT_TRUE(worker.run([] {}, count));
    EXPECT_TRUE(worker.run([] {}, count));
    EXPECT_FALSE(worker.run([] {}, count));
    gate.open.set_value();
    EXPECT_TRUE(runUntil([&finished] { return finished == 3; }));
    EXPECT_TRUE(worker.run([] {}, count));
    EXPECT_TRUE(runUntil([&finished] { return finished == 4; }));
}

TEST(PanelWorker, WhatATaskHoldsIsGoneBeforeItsDone) {
    Worker worker;
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = held;
    bool gone = false;
    bool finished = false;
    EXPECT_TRUE(worker.run([held = std::move(held)] {},
                           [&](const std::exception_ptr&) {
                               gone = weak.expired();
                               finished = true;
                           }));
    EXPECT_TRUE(runUntil([&finished] { return finished; }));
    EXPECT_TRUE(gone);
}

TEST(PanelWorker, EndWaitsForTheRunningTaskAndTellsNobody) {
    Gate gate;
    bool ran = false;
    int told = 0;
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = held;
    auto worker = std::make_unique<Worker>();
    const auto count = [&told](const std::exception_ptr&) { ++told; };
    EXPECT_TRUE(worker->run(
        [&] {
            gate.task()();
            ran = true;
        },
        count));
    EXPECT_TRUE(worker->run([held = std::move(held)] {}, count));
    gate.entered.get_future().wait();
    std::thread later([&gate] { gate.open.set_value(); });
    worker.reset();
    later.join();
    EXPECT_TRUE(ran);
    EXPECT_TRUE(weak.expired()) << "tasks that wait are destroyed with the worker";
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    EXPECT_EQ(told, 0) << "nobody is told after the end";
}

TEST(PanelWorker, DoneMayDestroyTheWorker) {
    auto worker = std::make_unique<Worker>();
    EXPECT_TRUE(worker->run([] {}, [&worker](const std::exception_ptr&) { worker.reset(); }));
    EXPECT_TRUE(runUntil([&worker] { return worker == nullptr; }));
}

TEST(PanelWorker, TaskMayBeGivenByADone) {
    Worker worker(1);
    int rounds = 0;
    std::function<void(const std::exception_ptr&)> again = [&](const std::exception_ptr&) {
        if (++rounds < 100) {
            EXPECT_TRUE(worker.run([] {}, again));
        }
    };
    EXPECT_TRUE(worker.run([] {}, again));
    EXPECT_TRUE(runUntil([&rounds] { return rounds == 100; }));
    EXPECT_TRUE(worker.run([] {}, nothing));
}

} // namespace
} // namespace panel
