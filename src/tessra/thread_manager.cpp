// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A pool of plain threads. A body may run for a whole render and wait for others meanwhile, so that
// each body gets a thread of its own at once: the pool grows when none is idle, and never queues.
#include "tessra/thread_manager.h"

#include <sched.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
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

/// Processors that the scheduler may put this process on.
int allowedProcessors() {
    // The kernel wants a mask at least as wide as its own, which may be wider than the default.
    for (int cpus = CPU_SETSIZE; cpus <= (1 << 20); cpus *= 4) {
        cpu_set_t* const mask = CPU_ALLOC(static_cast<std::size_t>(cpus));
        if (!mask)
            break;
        const std::size_t bytes = CPU_ALLOC_SIZE(static_cast<std::size_t>(cpus));
        const int count = sched_getaffinity(0, bytes, mask) == 0 ? CPU_COUNT_S(bytes, mask) : 0;
        CPU_FREE(mask);
        if (count > 0)
            return count;
    }
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

/// The folder of this process below the root of control groups, "" if there is none.
/// The line of version 2 in /proc/self/cgroup reads "0::/path".
std::string controlGroup() {
    std::ifstream file("/proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("0::", 0) == 0)
            return line.substr(3);
    }
    return "";
}

/// The tightest processor quota of the process's control group and its ancestors; infinite without
/// one. A file cpu.max reads "QUOTA PERIOD" in microseconds, or "max PERIOD".
double processorQuota() {
    double tightest = INFINITY;
    std::string group = controlGroup();
    for (;;) {
        std::ifstream file("/sys/fs/cgroup" + group + "/cpu.max");
        double quota = 0;
        double period = 0;
        if (file >> quota >> period && quota > 0 && period > 0)
            tightest = std::min(tightest, quota / period);
        const std::size_t slash = group.rfind('/');
        if (slash == std::string::npos)
            return tightest;
        group.resize(slash);
    }
}

}  // namespace

ThreadManager* newThreadManager(int processors) {
    return new PlainThreadManager(processors);
}

void deleteThreadManager(ThreadManager* manager) {
    delete manager;
}

int numberOfProcessors() {
    const int allowed = allowedProcessors();
    const double quota = processorQuota();
    if (quota >= allowed)
        return allowed;
    return std::max(1, static_cast<int>(std::ceil(quota)));
}

}  // namespace TessUtils
