// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The base of all multi-threaded computations. A computation derives from NmbParallel, overrides
// Run and GetName, divides an index range over its jobs and runs them:
//
//     construct; SplitRange(count); Start(); look at IsAborted() and the results; repeat or
//     destroy.
//
// The threads are the host's. One job for each thread stays alive between runs and is woken by an
// event, so that a run costs no thread start. Without a thread manager there is one job, which runs
// on the caller's thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/event.h"
#include "tessra/progress.h"
#include "tessra/thread_manager.h"

namespace NMBUtils {

class Job;
class NmbParallel;

/// As many jobs as there are processors.
inline constexpr std::uint32_t kAllProcessors = ~std::uint32_t{0};

/// Takes the host's threads for all computations until the last matching release. With a manager
/// set already, changes nothing but the count and answers whether it is the same one; otherwise 0.
/// Scene thread only, as is the release.
int setGlobalThreadManager(TessUtils::ThreadManager* manager);
/// The last release ends the jobs of all live computations, while their threads still exist.
void releaseGlobalThreadManager();
/// Null outside of a render.
TessUtils::ThreadManager* getGlobalThreadManager();

/// Something that hangs on a job and goes with it.
class JobPayload {
public:
    virtual ~JobPayload();
};

/// The events of a job. Its thread holds them as well, so that a thread which is late to leave does
/// not touch a job that is gone.
struct JobEvents {
    EventDomain domain;
    Event wakeEvent{domain, Event::Reset::Manual};
    Event doneEvent{domain, Event::Reset::Automatic};
    Event quitEvent{domain, Event::Reset::Automatic};
    Event exitedEvent{domain, Event::Reset::Automatic};
};

/// One share of a computation, and the body of the thread that works on it.
class Job : public TessUtils::ThreadProcedure {
public:
    Job() = default;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    /// Ends the thread's body; waits at most 100 ms for it.
    ~Job() override;
    /// Runs the parent's body each time that the job is woken, until it is told to quit.
    void Run(int threadIndex) override;
    virtual const char* GetParentName() const;

    // The share: [rangeStart, rangeEnd), maybe empty.
    std::int64_t rangeStart = 0;
    std::int64_t rangeCount = 1;
    std::int64_t rangeEnd = 0;
    std::int32_t argument = 0;  // of Start, the same for all jobs
    std::int32_t index = 0;     // place in the list
    NmbParallel* parent = nullptr;
    Job* next = nullptr;
    std::unique_ptr<JobPayload> payload;

private:
    friend class NmbParallel;
    std::shared_ptr<JobEvents> events_ = std::make_shared<JobEvents>();
    bool onThread_ = false;  // a thread runs the body
};

/// Redirects the body of the jobs, so that one class can run several bodies.
class TMTJobProcHolderInterface {
public:
    virtual ~TMTJobProcHolderInterface();
    virtual void Call(Job* job) = 0;
};

template <class T>
class TMTJobProcHolder final : public TMTJobProcHolderInterface {
public:
    using Body = void (T::*)(Job*);
    TMTJobProcHolder(T* object, Body body) : object_(object), body_(body) {}
    void Call(Job* job) override { (object_->*body_)(job); }

private:
    T* object_;
    Body body_;
};

/// Constructed, started and destroyed on one thread, never inside a job.
class NmbParallel {
public:
    /// Null: the global thread manager at the time when jobs are made.
    explicit NmbParallel(TessUtils::ThreadManager* manager = nullptr);
    NmbParallel(const NmbParallel&) = delete;
    NmbParallel& operator=(const NmbParallel&) = delete;
    virtual ~NmbParallel();

    /// The body, called once for each job in each run, on the jobs' threads at the same time.
    virtual void Run(Job* job);
    /// The class's name for messages.
    virtual const char* GetName() const { return "NmbParallel"; }
    /// True once the user or a job wants to stop. Bodies ask it between units of their work and
    /// leave early; after a run it tells whether the result is complete.
    virtual bool IsAborted();
    virtual Job* CreateJob();
    virtual void reserved() {}
    /// Logical processors, as the host counts them.
    virtual int GetNumberOfProcessors();

    /// Makes the jobs, unless there are as many already: `threads` of them, or as many as there are
    /// processors for the two highest values. Without a thread manager always one.
    void InitJobs(std::uint32_t threads = kAllProcessors);
    /// Divides [0, count) evenly over the jobs; makes them if there are none.
    void SplitRange(std::int64_t count);
    /// Runs the body in all jobs and returns when all are done, reporting progress every 10 ms.
    /// What a body throws aborts the run and is thrown here again, the first one of several.
    void Start(std::int32_t argument = 0, TessUtils::ProgressCallback* callback = nullptr);
    /// The same with `body` of another object in place of Run; each job keeps its `argument`.
    template <class T>
    void StartWithHolder(T* object, void (T::*body)(Job*),
                         TessUtils::ProgressCallback* callback = nullptr) {
        startWithHolder(std::make_unique<TMTJobProcHolder<T>>(object, body), callback);
    }

    /// Inside a body: waits until all jobs got here. 1: the run was aborted, leave; else 0. Every
    /// body of a run must pass the same barriers, unless it leaves after an abort.
    int Barrier();
    /// Inside a body: waits until it is this job's turn, which is when `finished` equals its index.
    /// 1: leave without working.
    int YieldToWake(Job* job);

    int jobCount() const { return threadCount.load(); }
    Job* jobs() const { return firstJob; }

    std::atomic<std::int32_t> progress{0};  // amount of work done; bodies add to it
    std::atomic<std::int32_t> aborted{0};
    std::atomic<std::int32_t> finished{0};  // whose turn it is, for YieldToWake

private:
    friend class Job;
    friend void releaseGlobalThreadManager();

    void startWithHolder(std::unique_ptr<TMTJobProcHolderInterface> holder,
                         TessUtils::ProgressCallback* callback);
    void runJobs(TessUtils::ProgressCallback* callback);
    void waitForJob(Job& job);
    void callBody(Job* job) noexcept;
    int addJobs(int count);
    void deleteJobs();
    void release();

    std::atomic<std::int32_t> threadCount{0};  // number of jobs
    std::unique_ptr<TMTJobProcHolderInterface> procHolder;
    TessUtils::ProgressCallback* progressCallback = nullptr;
    EventDomain domain_;
    Event barrierFull_{domain_, Event::Reset::Manual};
    Event barrierEmpty_{domain_, Event::Reset::Manual};
    std::atomic<std::int32_t> barrierCount{0};
    std::atomic<std::int32_t> bodiesLeft_{0};  // bodies that returned in this run
    std::string name;
    Job* firstJob = nullptr;
    TessUtils::ThreadManager* threadManager;
    std::atomic<std::int32_t> startedCount{0};
    Event allStarted_{domain_, Event::Reset::Automatic};
    std::mutex failureMutex_;
    std::exception_ptr failure_;  // what a body threw
};

}  // namespace NMBUtils
