// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/parallel.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "foundation/array.h"
#include "foundation/log.h"
#include "tessra/allocator.h"

namespace NMBUtils {

namespace {

using namespace std::chrono_literals;
using TessUtils::ThreadManager;

constexpr auto kPollTime = 10ms;
constexpr auto kExitTime = 100ms;

/// All live computations; exists while there are any. Locked, since a pass may be started by the
/// render thread that comes first.
std::mutex liveMutex;
NmbArray<NmbParallel*>* liveObjects = nullptr;
ThreadManager* globalThreadManager = nullptr;
std::int32_t globalThreadManagerRefs = 0;

void addLive(NmbParallel* object) {
    const std::lock_guard lock(liveMutex);
    if (!liveObjects)
        liveObjects = new NmbArray<NmbParallel*>;
    if (!liveObjects->Append(object))
        throw TessUtils::ExceptionMsg("No memory for the list of parallel computations");
}

void removeLive(const NmbParallel* object) {
    const std::lock_guard lock(liveMutex);
    NmbArray<NmbParallel*>& list = *liveObjects;
    int place = 0;
    while (place < list.size && list[place] != object)
        ++place;
    for (; place + 1 < list.size; ++place)
        list[place] = list[place + 1];
    list.SetSize(place);
    if (list.size == 0) {
        delete liveObjects;
        liveObjects = nullptr;
    }
}

}  // namespace

int setGlobalThreadManager(ThreadManager* manager) {
    ++globalThreadManagerRefs;
    if (globalThreadManager)
        return globalThreadManager == manager;
    globalThreadManager = manager;
    return 0;
}

void releaseGlobalThreadManager() {
    if (globalThreadManagerRefs == 0 || --globalThreadManagerRefs > 0)
        return;
    globalThreadManager = nullptr;
    const std::lock_guard lock(liveMutex);
    if (!liveObjects)
        return;
    for (NmbParallel* object : *liveObjects)
        object->release();
}

JobPayload::~JobPayload() = default;
TMTJobProcHolderInterface::~TMTJobProcHolderInterface() = default;

ThreadManager* getGlobalThreadManager() {
    return globalThreadManager;
}

// --- Job -----------------------------------------------------------------------------------------

Job::~Job() {
    payload.reset();
    if (!onThread_)
        return;
    events_->quitEvent.set();
    if (!events_->exitedEvent.waitFor(kExitTime))
        logLine("#job of %s did not exit properly\n", GetParentName());
}

const char* Job::GetParentName() const {
    return parent ? parent->name.c_str() : "";
}

void Job::Run(int) {
    const std::shared_ptr<JobEvents> events = events_;
    vallocInitializeForCurrentThread();
    if (parent && ++parent->startedCount == parent->threadCount)
        parent->allStarted_.set();
    // From here on the job may be gone whenever it isn't woken.
    while (&Event::waitAny(events->wakeEvent, events->quitEvent) == &events->wakeEvent) {
        events->wakeEvent.reset();
        if (parent)
            parent->callBody(this);
        events->doneEvent.set();
    }
    vallocTerminateForCurrentThread();
    events->exitedEvent.set();
}

// --- NmbParallel ---------------------------------------------------------------------------------

NmbParallel::NmbParallel(ThreadManager* manager) : threadManager(manager) {
    addLive(this);
}

NmbParallel::~NmbParallel() {
    deleteJobs();
    removeLive(this);
}

void NmbParallel::Run(Job*) {}

bool NmbParallel::IsAborted() {
    return aborted != 0 || (progressCallback && progressCallback->getAbort());
}

Job* NmbParallel::CreateJob() {
    return new Job;
}

int NmbParallel::GetNumberOfProcessors() {
    const ThreadManager* manager = threadManager ? threadManager : globalThreadManager;
    return manager ? manager->getNumberOfProcessors() : TessUtils::numberOfProcessors();
}

void NmbParallel::InitJobs(std::uint32_t threads) {
    if (!threadManager)
        threadManager = globalThreadManager;
    if (!threadManager) {
        debugOut(
            "Using NmbParallel without a thread manager. The code will run in single threaded "
            "mode\n");
        debugOut("Please check the %s implementation.\n", GetName());
        if (threads != kAllProcessors)
            debugOut(
                "Using NmbParallel without threadManager with 'threads' != -1!When the thread "
                "manager is missing 'threads' value is FORCED to 1.This may BREAK YOUR code!");
        threads = 1;
    } else if (threads >= kAllProcessors - 1) {
        threads = static_cast<std::uint32_t>(std::max(1, GetNumberOfProcessors()));
    }
    // Jobs made for the caller's thread cannot be woken, so that they don't serve a manager.
    const bool threaded = threadManager != nullptr;
    if (firstJob && static_cast<std::uint32_t>(jobCount()) == threads &&
        firstJob->onThread_ == threaded)
        return;

    deleteJobs();
    name = GetName();
    if (threadManager)
        threadManager->waitThreads(this);
    startedCount = 0;
    allStarted_.reset();
    const int wanted = static_cast<int>(threads);
    threadCount = wanted;
    const int made = addJobs(wanted);
    if (made < wanted) {
        // The system has no more threads: go on with those that run, or else with none.
        threadCount = made;
        if (startedCount == made)
            allStarted_.set();
    }
    if (threadManager && made > 0)
        allStarted_.wait();
    if (made == 0 && wanted > 0) {
        threadManager = nullptr;
        threadCount = 1;
        addJobs(1);
    }
}

/// Links up to `count` new jobs and gives them to the manager if there is one; how many there are.
int NmbParallel::addJobs(int count) {
    Job** tail = &firstJob;
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<Job> job(CreateJob());
        job->parent = this;
        job->index = i;
        job->next = nullptr;
        if (threadManager && !threadManager->runThread(job.get(), i, this))
            return i;
        job->onThread_ = threadManager != nullptr;
        *tail = job.release();
        tail = &(*tail)->next;
    }
    return count;
}

void NmbParallel::deleteJobs() {
    while (Job* const job = firstJob) {
        firstJob = job->next;
        delete job;
    }
}

/// The global thread manager goes.
void NmbParallel::release() {
    deleteJobs();
    threadCount = 0;
    threadManager = nullptr;
}

void NmbParallel::SplitRange(std::int64_t count) {
    if (!firstJob)
        InitJobs(kAllProcessors);
    const std::int64_t shares = jobCount();
    std::int64_t start = 0;
    std::int64_t place = 0;
    for (Job* job = firstJob; job; job = job->next) {
        ++place;
        job->rangeStart = start;
        job->rangeEnd = place == shares ? count : (place * count) / shares;
        job->rangeCount = job->rangeEnd - job->rangeStart;
        start = job->rangeEnd;
    }
}

void NmbParallel::Start(std::int32_t argument, TessUtils::ProgressCallback* callback) {
    procHolder.reset();
    for (Job* job = firstJob; job; job = job->next)
        job->argument = argument;
    runJobs(callback);
}

void NmbParallel::startWithHolder(std::unique_ptr<TMTJobProcHolderInterface> holder,
                                  TessUtils::ProgressCallback* callback) {
    procHolder = std::move(holder);
    runJobs(callback);
}

void NmbParallel::runJobs(TessUtils::ProgressCallback* callback) {
    progressCallback = callback;
    finished = 0;
    progress = 0;
    barrierCount = 0;
    aborted = 0;
    bodiesLeft_ = 0;
    // An aborted run can leave the barrier half open.
    barrierFull_.reset();
    barrierEmpty_.reset();

    for (Job* job = firstJob; job; job = job->next) {
        if (job->onThread_) {
            job->events_->doneEvent.reset();
            job->events_->wakeEvent.set();
        } else {
            callBody(job);
        }
    }
    for (Job* job = firstJob; job; job = job->next) {
        if (job->onThread_)
            waitForJob(*job);
    }
    if (std::exception_ptr failure = std::exchange(failure_, nullptr))
        std::rethrow_exception(failure);
}

void NmbParallel::waitForJob(Job& job) {
    while (!job.events_->doneEvent.waitFor(kPollTime)) {
        if (progressCallback) {
            progressCallback->setProgress(progress);
            progressCallback->processEvents();
        }
    }
}

/// The body of one job. An exception must not leave the host's thread; it ends the whole run.
void NmbParallel::callBody(Job* job) noexcept {
    try {
        if (procHolder)
            procHolder->Call(job);
        else
            Run(job);
    } catch (...) {
        const std::lock_guard lock(failureMutex_);
        if (!failure_)
            failure_ = std::current_exception();
        aborted = 1;
    }
    ++bodiesLeft_;
}

int NmbParallel::Barrier() {
    if (++barrierCount == threadCount) {
        barrierEmpty_.reset();
        barrierFull_.set();
    }
    // A body that left after an abort never gets here; those that wait must not wait for it.
    while (!barrierFull_.waitFor(kPollTime)) {
        if (bodiesLeft_ > 0 && IsAborted())
            return 1;
    }
    if (IsAborted())
        return 1;
    if (barrierCount-- == 1) {
        barrierFull_.reset();
        barrierEmpty_.set();
    }
    // Nor for one that saw the abort just above while this one did not.
    while (!barrierEmpty_.waitFor(kPollTime)) {
        if (IsAborted())
            return 1;
    }
    return 0;
}

int NmbParallel::YieldToWake(Job* job) {
    if (!job->parent)
        return 0;
    NmbParallel& owner = *job->parent;
    while (owner.finished != job->index) {
        if (job->events_->quitEvent.isSet() || owner.IsAborted())
            return 1;
        std::this_thread::sleep_for(1ms);
    }
    return 0;
}

}  // namespace NMBUtils
