#include "appliance/panel/web/worker.h"

#include <condition_variable>
#include <deque>
#include <glib.h>
#include <memory>
#include <mutex>
#include <thread>

namespace panel {
namespace {

struct Job {
    std::function<void()> task;
    std::function<void(std::exception_ptr)> done;
};

} // namespace

struct Worker::State {
    std::mutex mutex; // for `waiting` and `ends`
    std::condition_variable changed;
    std::deque<Job> waiting;
    bool ends = false;
    std::size_t mostWaiting = 0;
    GMainContext* context = nullptr; // of the thread that made the worker
    std::thread thread;

    bool next(Job& job) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return ends || !waiting.empty(); });
        if (ends)
            return false;
        job = std::move(waiting.front());
        waiting.pop_front();
        return true;
    }
};

namespace {

// A finished job on its way to the main loop.
struct Finished {
    std::weak_ptr<void> worker; // expired: the program ends, nobody waits for the result
    std::function<void(std::exception_ptr)> done;
    std::exception_ptr failure;
};

gboolean deliver(gpointer data) {
    const auto* finished = static_cast<Finished*>(data);
    if (!finished->worker.expired())
        finished->done(finished->failure);
    return G_SOURCE_REMOVE;
}

void destroyFinished(gpointer data) {
    delete static_cast<Finished*>(data);
}

std::exception_ptr failureOf(const std::function<void()>& task) {
    try {
        task();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

// Always through the context's queue: invoking directly would run `done` here when the main loop does not run yet.
void sendBack(GMainContext* context, Finished* finished) {
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, deliver, finished, destroyFinished);
    g_source_attach(source, context);
    g_source_unref(source);
}

} // namespace

Worker::Worker(std::size_t mostWaiting) : state_(std::make_shared<State>()) {
    state_->mostWaiting = mostWaiting;
    state_->context = g_main_context_ref_thread_default();
    State* state = state_.get();
    const std::weak_ptr<void> alive = state_;
    state_->thread = std::thread([state, alive] {
        Job job;
        while (state->next(job)) {
            std::exception_ptr failure = failureOf(job.task);
            job.task = nullptr; // what it holds is destroyed before `done` runs
            sendBack(state->context, new Finished{alive, std::move(job.done), std::move(failure)});
        }
    });
}

Worker::~Worker() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->ends = true;
    }
    state_->changed.notify_one();
    state_->thread.join();
    g_main_context_unref(state_->context);
}

bool Worker::run(std::function<void()> task, std::function<void(std::exception_ptr)> done) {
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->waiting.size() >= state_->mostWaiting)
            return false;
        state_->waiting.push_back({std::move(task), std::move(done)});
    }
    state_->changed.notify_one();
    return true;
}

} // namespace panel
