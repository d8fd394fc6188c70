// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/parallel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/caught_log.h"
#include "support/golden.h"

namespace NMBUtils {
namespace {

using TessUtils::ThreadManager;
using namespace std::chrono_literals;

struct DeleteManager {
    void operator()(ThreadManager* manager) const { TessUtils::deleteThreadManager(manager); }
};
using ManagerPtr = std::unique_ptr<ThreadManager, DeleteManager>;

ManagerPtr managerOf(int processors) {
    return ManagerPtr(TessUtils::newThreadManager(processors));
}

/// Runs any function as its body.
class Computation : public NmbParallel {
public:
    explicit Computation(ThreadManager* manager, std::function<void(Computation&, Job*)> body = {})
        : NmbParallel(manager), body_(std::move(body)) {}
    void Run(Job* job) override {
        if (body_)
            body_(*this, job);
    }
    const char* GetName() const override { return "Computation"; }

private:
    std::function<void(Computation&, Job*)> body_;
};

class ProgressProbe : public TessUtils::ProgressCallback {
public:
    void setProgressTitle(const char*) override {}
    bool getAbort() override { return abort; }
    void setAbort(int on) override { abort = on != 0; }
    void setProgress(int done) override { reports.push_back(done); }
    void processEvents() override { abort = abort || ++eventRounds == 3; }

    std::atomic<bool> abort{false};
    std::vector<int> reports;
    int eventRounds = 0;

protected:
    void message(Level, const char*) override {}
};

TEST(NmbParallel, SplitRange_MatchesTheGoldenRanges) {
    for (const nimbra::test::GoldenCase& golden : nimbra::test::goldenNamed("splitrange"))
        for (const nlohmann::json& c : golden.json["cases"]) {
            const ManagerPtr manager = managerOf(c["jobs"]);
            Computation computation(manager.get());
            computation.SplitRange(c["count"]);
            nlohmann::json ranges = nlohmann::json::array();
            for (const Job* job = computation.jobs(); job; job = job->next) {
                EXPECT_EQ(job->rangeCount, job->rangeEnd - job->rangeStart);
                ranges.push_back({job->rangeStart, job->rangeEnd});
            }
            EXPECT_EQ(ranges, c["ranges"]) << golden.name() << " " << c.dump();
        }
}

TEST(NmbParallel, RepeatedRuns_ReuseTheJobsAndTheirThreads) {
    const ManagerPtr manager = managerOf(4);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::vector<int> hits(1000);
    Computation computation(manager.get(), [&](Computation& self, Job* job) {
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i)
            hits[static_cast<std::size_t>(i)] += job->argument;
        self.progress += static_cast<int>(job->rangeCount);
        const std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
    });
    computation.SplitRange(1000);
    const Job* const first = computation.jobs();
    for (int run = 0; run < 50; ++run) {
        computation.SplitRange(1000);
        computation.Start(2);
        EXPECT_EQ(computation.progress, 1000);
    }
    EXPECT_EQ(computation.jobs(), first);
    EXPECT_EQ(threads.size(), 4u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    EXPECT_TRUE(std::all_of(hits.begin(), hits.end(), [](int n) { return n == 100; }));
}

/// Two more bodies, chosen run by run.
class TwoBodies : public Computation {
public:
    explicit TwoBodies(ThreadManager* manager)
        : Computation(manager, [this](Computation&, Job*) { ++plainRuns; }), sums(3) {}
    void addIndex(Job* job) { sums[static_cast<std::size_t>(job->index)] += job->index + 1; }
    void addArgument(Job* job) { sums[static_cast<std::size_t>(job->index)] += job->argument; }

    std::atomic<int> plainRuns{0};
    std::vector<int> sums;
};

TEST(NmbParallel, StartWithHolder_RedirectsTheBodyUntilTheNextStart) {
    const ManagerPtr manager = managerOf(3);
    TwoBodies bodies(manager.get());
    bodies.SplitRange(3);
    bodies.Start(100);
    bodies.StartWithHolder(&bodies, &TwoBodies::addIndex);
    bodies.StartWithHolder(&bodies, &TwoBodies::addArgument);
    EXPECT_EQ(bodies.plainRuns, 3);
    EXPECT_EQ(bodies.sums, (std::vector<int>{101, 102, 103}));
    bodies.Start();
    EXPECT_EQ(bodies.plainRuns, 6);
}

// --- Without threads -----------------------------------------------------------------------------

TEST(NmbParallel, WithoutManager_RunsOneJobOnTheCallersThreadAndWarnsTheDebugger) {
    const nimbra::test::DebuggerTexts debugger;
    std::thread::id ranOn;
    std::int64_t count = 0;
    Computation computation(nullptr, [&](Computation&, Job* job) {
        ranOn = std::this_thread::get_id();
        count += job->rangeCount;
    });
    computation.SplitRange(10);
    computation.Start();
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_EQ(count, 10);
    const std::string twoLines =
        "Using NmbParallel without a thread manager. The code will run in single threaded mode\n"
        "Please check the Computation implementation.\n";
    EXPECT_EQ(debugger.text(), twoLines);
    computation.InitJobs(4);
    EXPECT_EQ(computation.jobCount(), 1);
    EXPECT_EQ(debugger.text(),
              twoLines + twoLines +
                  "Using NmbParallel without threadManager with 'threads' != -1!When the thread "
                  "manager is missing 'threads' value is FORCED to 1.This may BREAK YOUR code!");
}

/// A host that has only a few threads to give.
class StingyManager : public ThreadManager {
public:
    explicit StingyManager(int threads) : left_(threads) {}
    bool runThread(TessUtils::ThreadProcedure* procedure, int index, const void* owner) override {
        return left_-- > 0 && inner_->runThread(procedure, index, owner);
    }
    void waitThreads(const void* owner) override { inner_->waitThreads(owner); }
    int getNumberOfProcessors() const override { return 6; }

private:
    ManagerPtr inner_ = managerOf(6);
    int left_;
};

TEST(NmbParallel, TooFewThreads_DividesTheWorkOverThoseThatRun) {
    for (const int threads : {2, 0}) {
        StingyManager manager(threads);
        std::atomic<std::int64_t> sum{0};
        Computation computation(&manager, [&](Computation&, Job* job) { sum += job->rangeCount; });
        computation.SplitRange(100);
        EXPECT_EQ(computation.jobCount(), std::max(threads, 1));
        computation.Start();
        EXPECT_EQ(sum, 100);
    }
}

// --- The global manager --------------------------------------------------------------------------

TEST(GlobalThreadManager, IsCountedAndItsLastReleaseEndsAllJobs) {
    const ManagerPtr manager = managerOf(2);
    const ManagerPtr other = managerOf(3);
    EXPECT_EQ(setGlobalThreadManager(manager.get()), 0);
    EXPECT_EQ(setGlobalThreadManager(manager.get()), 1);
    EXPECT_EQ(setGlobalThreadManager(other.get()), 0);
    Computation first(nullptr);
    Computation second(nullptr);
    first.SplitRange(8);
    second.SplitRange(8);
    EXPECT_EQ(first.jobCount(), 2);

    releaseGlobalThreadManager();
    releaseGlobalThreadManager();
    EXPECT_EQ(first.jobCount(), 2);
    releaseGlobalThreadManager();
    EXPECT_EQ(first.jobCount(), 0);
    EXPECT_TRUE(!first.jobs() && !second.jobs());
    manager->waitThreads(&first);  // the bodies have ended
    manager->waitThreads(&second);

    // The next render brings another manager.
    releaseGlobalThreadManager();  // one too many changes nothing
    EXPECT_EQ(setGlobalThreadManager(other.get()), 0);
    first.SplitRange(8);
    EXPECT_EQ(first.jobCount(), 3);
    releaseGlobalThreadManager();
}

// --- Abort, barrier, failures --------------------------------------------------------------------

TEST(NmbParallel, LongRun_ReportsProgressAndLetsTheUserAbort) {
    const ManagerPtr manager = managerOf(2);
    ProgressProbe probe;
    Computation computation(manager.get(), [](Computation& self, Job*) {
        while (!self.IsAborted()) {
            ++self.progress;
            std::this_thread::sleep_for(1ms);
        }
    });
    computation.SplitRange(2);
    computation.Start(0, &probe);
    EXPECT_TRUE(computation.IsAborted());
    EXPECT_GE(probe.reports.size(), 3u);
    EXPECT_TRUE(std::is_sorted(probe.reports.begin(), probe.reports.end()));
    EXPECT_GT(probe.reports.back(), 0);

    probe.abort = false;
    probe.eventRounds = 0;
    computation.Start(0, &probe);
    EXPECT_GE(probe.eventRounds, 3);  // a new run starts without the old abort
}

TEST(Barrier, SeparatesThePhases) {
    const ManagerPtr manager = managerOf(4);
    std::atomic<int> arrived{0}, wrong{0};
    Computation computation(manager.get(), [&](Computation& self, Job*) {
        for (int phase = 1; phase <= 200; ++phase) {
            ++arrived;
            wrong += self.Barrier() != 0 || arrived != phase * 4;
            wrong += self.Barrier() != 0;
        }
    });
    computation.SplitRange(4);
    computation.Start();
    EXPECT_EQ(wrong, 0);
}

TEST(Barrier, AbortAnywhere_LetsAllJobsLeaveAndTheNextRunIsWhole) {
    const ManagerPtr manager = managerOf(4);
    std::atomic<int> ones{0}, zeros{0};
    Computation computation(manager.get(), [&](Computation& self, Job* job) {
        // 1: abort, then meet; 2: abort and leave at once; 3: abort while others meet; 4: don't.
        if (job->index == 2 && job->argument != 4) {
            if (job->argument == 3)
                self.Barrier();
            self.aborted = 1;
            if (job->argument == 2)
                return;
        }
        ++(self.Barrier() ? ones : zeros);
    });
    computation.SplitRange(4);
    for (int round = 0; round < 20; ++round)
        for (const int argument : {1, 2, 3, 4}) {
            ones = zeros = 0;
            computation.Start(argument);
            EXPECT_EQ(computation.IsAborted(), argument != 4);
            EXPECT_TRUE(argument == 3 || zeros == (argument == 4 ? 4 : 0));
            EXPECT_TRUE(argument == 3 || ones == (argument == 4 ? 0 : 5 - argument));
        }
}

TEST(YieldToWake, HandsTheTurnFromJobToJob) {
    const ManagerPtr manager = managerOf(4);
    std::vector<int> order;
    Computation computation(manager.get(), [&](Computation& self, Job* job) {
        if (self.YieldToWake(job) != 0)
            return;
        order.push_back(job->index);
        ++self.finished;
    });
    computation.SplitRange(4);
    computation.Start();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));

    Computation aborting(manager.get(), [&](Computation& self, Job* job) {
        if (job->index == 0)
            self.aborted = 1;
        else if (self.YieldToWake(job) == 0)
            order.clear();
    });
    aborting.SplitRange(4);
    aborting.Start();
    EXPECT_EQ(order.size(), 4u);

    Job alone;
    EXPECT_EQ(computation.YieldToWake(&alone), 0);
}

TEST(NmbParallel, BodyThatThrows_AbortsTheRunAndReachesTheCaller) {
    const ManagerPtr manager = managerOf(4);
    for (ThreadManager* used : {manager.get(), static_cast<ThreadManager*>(nullptr)}) {
        Computation computation(used, [](Computation& self, Job* job) {
            if (job->argument == 1 && job->rangeStart == 0)
                throw std::runtime_error("no memory");
            self.Barrier();
        });
        computation.SplitRange(8);
        EXPECT_THROW(computation.Start(1), std::runtime_error);
        EXPECT_TRUE(computation.IsAborted());
        computation.Start(0);
        EXPECT_FALSE(computation.IsAborted());
    }
}

}  // namespace
}  // namespace NMBUtils
