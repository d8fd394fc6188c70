// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/thread_slot.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace nimbra {

#if defined(__GNUC__) && defined(__ELF__)
[[gnu::tls_model("initial-exec")]]
#endif
constinit thread_local ThreadSlotTable threadSlotTable = {nullptr, 0};

namespace {

/// All slots of the process. Never destroyed: threads may end after the statics are gone.
struct Registry {
    std::mutex lock;
    std::vector<ThreadSlot*> owners;         // by slot number, null while it is free
    std::vector<std::uint32_t> freeNumbers;  // capacity for all numbers, so that freeing can't fail
    std::uint64_t lastGeneration = 0;
};

Registry& registry() {
    static Registry* const all = new Registry;
    return *all;
}

}  // namespace

/// Ends with its thread.
struct ThreadSlotCleaner {
    bool armed = false;
    ~ThreadSlotCleaner() { clean(); }
    static void clean();
};

namespace {
thread_local ThreadSlotCleaner cleaner;

/// Makes the calling thread's table long enough for `number`.
void growTable(std::uint32_t number) {
    ThreadSlotTable& table = threadSlotTable;
    if (number < table.count)
        return;
    const std::uint32_t count = std::max<std::uint32_t>(number + 1, table.count * 2);
    auto* const entries = new ThreadSlotTable::Entry[count]();
    std::copy_n(table.entries, table.count, entries);
    delete[] table.entries;
    table = {entries, count};
}

}  // namespace

void ThreadSlotCleaner::clean() {
    Registry& all = registry();
    const ThreadSlotTable table = std::exchange(threadSlotTable, {nullptr, 0});
    {
        const std::lock_guard guard(all.lock);
        for (std::uint32_t n = 0; n < table.count; ++n) {
            const ThreadSlotTable::Entry& entry = table.entries[n];
            if (!entry.object)
                continue;
            // An entry of an owner that is gone points to nothing: its object went with it.
            ThreadSlot* const owner = all.owners[n];
            if (!owner || owner->generation_ != entry.generation)
                continue;
            std::erase(owner->objects_, entry.object);
            delete entry.object;
        }
    }
    delete[] table.entries;
}

ThreadSlot::ThreadSlot() {
    Registry& all = registry();
    const std::lock_guard guard(all.lock);
    if (all.freeNumbers.empty()) {
        all.freeNumbers.reserve(all.owners.size() + 1);
        number_ = static_cast<std::uint32_t>(all.owners.size());
        all.owners.push_back(this);
    } else {
        number_ = all.freeNumbers.back();
        all.freeNumbers.pop_back();
        all.owners[number_] = this;
    }
    generation_ = ++all.lastGeneration;
}

ThreadSlot::~ThreadSlot() {
    Registry& all = registry();
    const std::lock_guard guard(all.lock);
    for (ThreadLocalObject* object : objects_)
        delete object;
    all.owners[number_] = nullptr;
    all.freeNumbers.push_back(number_);
}

void ThreadSlot::set(std::unique_ptr<ThreadLocalObject> object) const {
    cleaner.armed = true;
    growTable(number_);
    const std::lock_guard guard(registry().lock);
    objects_.push_back(object.get());
    threadSlotTable.entries[number_] = {generation_, object.release()};
}

std::uint32_t ThreadSlot::numbersInUse() {
    const std::lock_guard guard(registry().lock);
    return static_cast<std::uint32_t>(registry().owners.size());
}

std::size_t ThreadSlot::objectCount() const {
    const std::lock_guard guard(registry().lock);
    return objects_.size();
}

}  // namespace nimbra
