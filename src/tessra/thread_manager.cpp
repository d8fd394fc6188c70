// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A pool of plain threads. A body may run for a whole render and wait for others meanwhile, so that
// each body gets a thread of its own at once: the pool grows when none is idle, and never queues.
#include "tessra/thread_manager.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace TessUtils {

namespace {

/// One thread of the pool and the body that it is to run next.
struct Worker {
    std::thread thread;
    std::condition_variable wake;
    ThreadProcedure* procedure = nullptr;
    int index = 0;
    const void* owner = nullptr;
};

class PlainThreadManager final : public ThreadManager {
public:
    explicit PlainThreadManager(int processors)
        : processors_(processors > 0 ? processors : numberOfProcessors()) {}

    ~PlainThreadManager() override {
        std::unique_lock lock(mutex_);
        ended_.wait(lock, [this] { return running_.empty(); });
        closing_ = true;
        for (const auto& worker : workers_)
            worker->wake.notify_one();
        lock.unlock();
        for (const auto& worker : workers_)
            worker->thread.join();
    }

    bool runThread(ThreadProcedure* procedure, int threadIndex, const void* owner) override {
        if (!procedure)
            return false;
        const std::lock_guard lock(mutex_);
        try {
            const auto entry = running_.try_emplace(owner, 0).first;
            Worker* const worker = idleWorker();
            if (worker) {
                worker->procedure = procedure;
                worker->index = threadIndex;
                worker->owner = owner;
                ++entry->second;
                worker->wake.notify_one();
            } else if (entry->second == 0) {
                running_.erase(entry);
            }
            return worker != nullptr;
        } catch (const std::bad_alloc&) {  // of the table of owners
            return false;
        }
    }

    void waitThreads(const void* owner) override {
        std::unique_lock lock(mutex_);
        ended_.wait(lock, [&] { return running_.count(owner) == 0; });
    }

    int getNumberOfProcessors() const override { return processors_; }

private:
    /// A worker to give a body to, a new one if need be; null when the system has no more threads.
    Worker* idleWorker() {
        if (idle_.empty())
            return newWorker();
        Worker* const worker = idle_.back();
        idle_.pop_back();
        return worker;
    }

    Worker* newWorker() {
        try {
            idle_.reserve(workers_.size() + 1);
            workers_.reserve(workers_.size() + 1);
            auto worker = std::make_unique<Worker>();
            worker->thread = std::thread([this, w = worker.get()] { work(*w); });
            workers_.push_back(std::move(worker));
            return workers_.back().get();
        } catch (const std::system_error&) {
            return nullptr;
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    void work(Worker& self) {
        std::unique_lock lock(mutex_);
        for (;;) {
            self.wake.wait(lock, [&] { return self.procedure || closing_; });
            if (!self.procedure)
                return;
            ThreadProcedure* const procedure = self.procedure;
            lock.unlock();
            procedure->Run(self.index);
            lock.lock();
            self.procedure = nullptr;
            idle_.push_back(&self);
            const auto entry = running_.find(self.owner);
            if (--entry->second == 0)
                running_.erase(entry);
            ended_.notify_all();
        }
    }

    const int processors_;
    std::mutex mutex_;
    std::condition_variable ended_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<Worker*> idle_;           // capacity for all workers
    std::map<const void*, int> running_;  // bodies that run, by owner
    bool closing_ = false;
};

}  // namespace

ThreadManager* newThreadManager(int processors) {
    return new PlainThreadManager(processors);
}

void deleteThreadManager(ThreadManager* manager) {
    delete manager;
}

}  // namespace TessUtils
